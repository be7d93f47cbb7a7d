#pragma once

#include <string>

#include "tests/oracle/JobOracle.h"

/// Random positive stack and volume (the same for the same seed), with the valid ranges of
/// bInvalid.
TestData MakeData(const TestJob& rJob, unsigned uiSeed);

/// Runs the job with the library, one thread for each worker.
/// \param strBackend  see MakeTestBackend(), with as many devices as workers
/// \param iMaxRows  rows of a batch, 0: as the backend likes
TestData RunJob(const TestJob& rJob, const TestData& rStart, const std::string& strBackend,
                int iWorkers = 1, int iMaxRows = 0);
