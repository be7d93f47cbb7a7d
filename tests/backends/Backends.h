#pragma once

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "gpulib/Device/Backend.h"

// The backends that a test program runs on. The same tests are linked with each of: the host's
// instruction sets; the CUDA backend on the software CUDA device; the CUDA backend on a GPU.

/// Names for MakeTestBackend(): avx512, ..., baseline, or cuda-exact, cuda.
std::vector<std::string> GetTestBackends();

/// \param strName   one of the above, or "host" for the best instruction set
/// \param iDevices  wanted; CBackend::GetDeviceCount() tells how many there are
/// \return null with the reason on the console where there is no device
std::unique_ptr<CBackend> MakeTestBackend(const std::string& strName, int iDevices,
                                          int iMaxRows = 0);

/// What a backend makes of the weight of a bilinear read: the texture unit keeps 8 bits of it.
inline double RoundWeight(const std::string& strBackend, double dWeight)
{
    return strBackend == "cuda" ? std::round(dWeight * 256) / 256 : dWeight;
}

/// Tolerance of relative errors: a coordinate that is off by its last bit may round to the next
/// weight of 8 bits.
inline double Tolerance(const std::string& strBackend, double dExact)
{
    return strBackend == "cuda" ? std::max(dExact, 3e-4) : dExact;
}

/// Where the oracle's AlignSums has the sums of a comparison.
inline constexpr int g_aiAlignSums[eCompareSums] = {7, 4, 8, 0, 5, 2, 1, 6, 3};

/// Name of a test of one backend.
inline std::string NameOf(const std::string& strBackend)
{
    return strBackend == "cuda-exact" ? "cudaexact" : strBackend;
}
