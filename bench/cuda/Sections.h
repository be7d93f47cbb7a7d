#pragma once

#include "bench/cuda/Ceilings.h"

// The parts of the table.

struct BenchSize
{
    int iX, iZ, iProjs;  ///< slices and projections of the kernels
    int iBandRows;       ///< of which a batch is taken
    int iMostRows;       ///< of the batches that are compared
    int iJobX, iJobY, iJobZ;
    int iAgreeX, iAgreeY, iAgreeZ;
    int iIterations, iRepeats;
    CeilingSize aCeilings;
};
constexpr BenchSize g_aFullSize = {1024, 256, 61, 1024, 512, 1024, 1024,
                                   256,  256, 64, 128,  10,  10,   {256 << 20, 4096, 10}};
/// For devices in software: shows that all runs, its figures mean nothing.
constexpr BenchSize g_aTinySize = {24, 8, 5, 3, 64, 24, 6, 8, 24, 3, 8, 2, 1, {4096, 8, 1}};

/// Rates of every kernel on the selected device. \return false with the reason noted
[[nodiscard]] bool PrintKernels(const BenchSize& rSize, const Ceilings& rCeilings);

/// The projectors by the rows of a batch. \return false with the reason noted
[[nodiscard]] bool PrintBatches(const BenchSize& rSize, const Ceilings& rCeilings);

/// Whole SART jobs of one worker on the selected device, with where their time goes.
/// \return false with the reason noted
[[nodiscard]] bool PrintJobs(const BenchSize& rSize);

/// Volumes of the CUDA backend beside those of the host; leaves the host as the backend in use.
/// \return whether all agree; false with the reason noted where a job failed
[[nodiscard]] bool PrintAgreement(const BenchSize& rSize);
