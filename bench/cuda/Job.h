#pragma once

#include "Util/Util_Volume.h"
#include "gpulib/Device/Cuda/CudaClock.h"

/// Makes the CUDA backend the one in use and selects its first device that can be.
/// \return false with the reason noted
[[nodiscard]] bool UseCuda();

/// A reconstruction of one worker on the selected device of the backend in use.
struct Job
{
    int iX, iY, iZ;  ///< of the volume; the projections have X x Y pixels
    int iProjs;      ///< -60 to 60 degrees
    int iIterations;
    unsigned uiSets;
    bool bEm = false;
};

/// Projections of some ellipses in every row; what lies outside them is 0.
void FillStack(const Job& rJob, Util_Volume& rStack);

/// \param rVolume  receives the result; all of its memory is touched before the time begins
/// \param pTotals  receives where the time goes; null: no clock, which costs a little time
/// \return seconds with all copies, NaN with the reason noted
double RunJob(const Job& rJob, Util_Volume& rStack, Util_Volume& rVolume,
              CCudaClock::Totals* pTotals = nullptr);
