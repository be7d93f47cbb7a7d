// Smoothing of a volume.

#include "gpulib/Device/Cuda/CudaBackend.h"
#include "gpulib/Device/Cuda/Launch.h"
#include "gpulib/Device/Cuda/SmoothBody.h"

namespace
{
__global__ void __launch_bounds__(g_iThreads) SmoothKernel(const __grid_constant__ SmoothParams aP)
{
    const int iRowBlocks = (aP.aVol.iWidth + g_iThreads - 1) / g_iThreads;
    const int iX = blockIdx.x % iRowBlocks * g_iThreads + threadIdx.x;
    if (iX < aP.aVol.iWidth)
        SmoothBody(iX, blockIdx.x / iRowBlocks, blockIdx.y * g_iSmoothVoxels, aP);
}
}  // namespace

bool CCudaBackend::mSmooth(const SmoothParams& rP)
{
    const dim3 aGrid(BlocksFor(rP.aVol.iWidth) * rP.aVol.iHeight,
                     (rP.aVol.iDepth + g_iSmoothVoxels - 1) / g_iSmoothVoxels, 1);
    return mLaunch("Smooth", aGrid, 0, SmoothKernel, rP);
}
