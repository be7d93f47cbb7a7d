#pragma once

#include <string>

#include "gpulib/Device/Backend.h"
#include "tests/oracle/JobOracle.h"

class Util_Volume;
void Load(Util_Volume& rVolume, int iX, int iY, int iZ, const std::vector<float>& rData);
std::vector<float> Unload(const Util_Volume& rVolume);

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
