#pragma once

#include <memory>
#include <string>
#include <vector>

#include "gpulib/Device/Backend.h"

// The backends that a test program runs on. The same tests are linked with each of: the host's
// instruction sets; the CUDA backend on the software CUDA device; the CUDA backend on a GPU.

/// Names for MakeTestBackend(): avx512, ..., baseline, or cuda.
std::vector<std::string> GetTestBackends();

/// \param strName   one of the above, or "host" for the best instruction set
/// \param iDevices  wanted; CBackend::GetDeviceCount() tells how many there are
/// \return null with the reason on the console where there is no device
std::unique_ptr<CBackend> MakeTestBackend(const std::string& strName, int iDevices,
                                          int iMaxRows = 0);

/// Where the oracle's AlignSums has the sums of a comparison.
inline constexpr int g_aiAlignSums[eCompareSums] = {7, 4, 8, 0, 5, 2, 1, 6, 3};
