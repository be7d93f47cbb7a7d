#pragma once

#include <algorithm>
#include <string>

#include "Util/Util_Volume.h"
#include "gpulib/Device/Backend.h"
#include "tests/oracle/JobOracle.h"

inline void Load(Util_Volume& rVolume, int iX, int iY, const std::vector<float>& rData)
{
    rVolume.SetSize(iX, iY, int(rData.size()) / (iX * iY));
    std::ranges::copy(rData, rVolume.GetData());
}

inline std::vector<float> Unload(const Util_Volume& rVolume)
{
    return {rVolume.GetData(), rVolume.GetData() + rVolume.GetVoxels()};
}

/// What runs a job.
struct Machine
{
    std::string strBackend;  ///< see MakeTestBackend()
    int iWorkers = 1;        ///< as many devices, if there are so many
    int iMaxRows = 0;        ///< of a batch, 0: as the backend likes
    int iCores = 0;          ///< of a device; 0: as the backend likes, else only on the host
};

/// Random positive stack and volume (the same for the same seed), with the valid ranges of
/// bInvalid.
TestData MakeData(const TestJob& rJob, unsigned uiSeed);

/// Runs the job with the library, one thread for each worker. The backend stays in use.
TestData RunJob(const TestJob& rJob, const TestData& rStart, const Machine& rMachine);
