#pragma once

/// Times of one SART job, seconds.
struct SartTimes
{
    bool bDone = false;
    double dJob = 0;      ///< wall clock, from the start to the end of the slowest worker
    double dWorker = 0;   ///< processor time of all workers
    double dKernels = 0;  ///< part of it in kernels
};

/// Reconstructs iRows rows of 1024 x 256 voxels on iWorkers devices of the host backend in use,
/// from 61 random projections in iSets sets (0: one projection each), as the server would.
SartTimes RunSartJob(int iWorkers, int iRows, int iSets, int iIterations);
