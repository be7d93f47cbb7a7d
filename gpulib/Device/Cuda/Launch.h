#pragma once

#include <cuda_runtime.h>

#include <cstddef>
#include <type_traits>

#include "gpulib/Device/Cuda/CudaCheck.h"
#include "gpulib/Device/Cuda/CudaClock.h"

// How kernels are launched. A kernel computes its indices, checks them and calls its body; the body
// is an inline function of these indices and the parameters.

constexpr int g_iThreads = 256;  ///< of a block, in every kernel

/// Blocks for so many items.
inline unsigned int BlocksFor(long long iItems, int iPerBlock = g_iThreads)
{
    return static_cast<unsigned int>((iItems + iPerBlock - 1) / iPerBlock);
}

/// Starts a kernel on a stream and returns at once.
/// \param pcName   lives as long as the program
/// \param tShared  bytes of shared memory of a block
template <class... PARAMS>
[[nodiscard]] bool Launch(const char* pcName, cudaStream_t pStream, dim3 aGrid, std::size_t tShared,
                          void (*pKernel)(PARAMS...),
                          const std::type_identity_t<std::decay_t<PARAMS>>&... rParams)
{
    cudaLaunchConfig_t aConfig = {};
    aConfig.gridDim = aGrid;
    aConfig.blockDim = dim3(g_iThreads, 1, 1);
    aConfig.dynamicSmemBytes = tShared;
    aConfig.stream = pStream;
    const CDeviceSpan aSpan(pcName, pStream);
    return CudaOk(cudaLaunchKernelEx(&aConfig, pKernel, rParams...), "%s: launch of %u x %u x %u",
                  pcName, aGrid.x, aGrid.y, aGrid.z);
}
