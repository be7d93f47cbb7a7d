#pragma once

#include <cstddef>

// Images of projections that a job holds besides the slices.
constexpr int g_iForProjImages = 1;   // ray sums
constexpr int g_iBackProjImages = 1;  // measured rows
constexpr int g_iIterImages = 3;      // measured rows, working rows, ray sums

/// Sizes that decide how much memory one worker of a job needs.
struct JobShape
{
    int iProjX = 0;  ///< detector columns
    int iProjs = 0;  ///< projections of the stack
    int iVolX = 0;   ///< voxels of a slice
    int iVolZ = 0;
    int iRows = 0;          ///< of the worker's band
    int iProjImages = 0;    ///< images of projections that the job holds: one of the above
    std::size_t tSums = 0;  ///< R-factor sums: list length x iterations

    std::size_t GetRowBytes() const;     ///< what one row of a batch takes on the device
    int GetBatch() const;                ///< rows of a batch on the backend in use
    std::size_t GetWorkerBytes() const;  ///< of the host, copies of tables included
};
