#include "gpulib/Device/Cuda/Launch.h"
#include "gpulib/Device/Cuda/Texels.h"
#include "gpulib/Device/Cuda/Transfer.h"

namespace
{
__device__ __forceinline__ std::size_t LinearIndex(const ImageRegion& rR, int iX, int iY, int iLane)
{
    return (static_cast<std::size_t>(iY) * rR.iLanes + iLane) * rR.iWidth + iX;
}

__global__ void __launch_bounds__(g_iThreads)
    ScatterKernel(const __grid_constant__ ImageRegion aR, const float* pfLinear)
{
    const int iX = blockIdx.x * g_iThreads + threadIdx.x, iY = blockIdx.y, iLane = blockIdx.z;
    if (iX >= aR.iWidth) return;
    const float fValue = iLane < aR.iLanes ? pfLinear[LinearIndex(aR, iX, iY, iLane)] : 0.0f;
    StoreTexel(aR.aImage, aR.iX0 + iX, aR.iY0 + iY, iLane, fValue);
}

__global__ void __launch_bounds__(g_iThreads)
    GatherKernel(const __grid_constant__ ImageRegion aR, float* pfLinear)
{
    const int iX = blockIdx.x * g_iThreads + threadIdx.x, iY = blockIdx.y, iLane = blockIdx.z;
    if (iX >= aR.iWidth) return;
    pfLinear[LinearIndex(aR, iX, iY, iLane)] =
        LoadTexel(aR.aImage, aR.iX0 + iX, aR.iY0 + iY, iLane);
}

__global__ void __launch_bounds__(g_iThreads)
    CopyKernel(const __grid_constant__ DeviceImage aDest,
               const __grid_constant__ DeviceImage aSource)
{
    const int iX = blockIdx.x * g_iThreads + threadIdx.x, iY = blockIdx.y, iLane = blockIdx.z;
    if (iX < aDest.iWidth) StoreTexel(aDest, iX, iY, iLane, LoadTexel(aSource, iX, iY, iLane));
}
}  // namespace

bool Scatter(const ImageRegion& rRegion, const float* pfLinear, cudaStream_t pStream)
{
    const dim3 aGrid(BlocksFor(rRegion.iWidth), rRegion.iHeight, rRegion.aImage.iLanes);
    return Launch("upload", pStream, aGrid, 0, ScatterKernel, rRegion, pfLinear);
}

bool Gather(const ImageRegion& rRegion, float* pfLinear, cudaStream_t pStream)
{
    const dim3 aGrid(BlocksFor(rRegion.iWidth), rRegion.iHeight, rRegion.iLanes);
    return Launch("download", pStream, aGrid, 0, GatherKernel, rRegion, pfLinear);
}

bool CopyTexels(const DeviceImage& rDest, const DeviceImage& rSource, cudaStream_t pStream)
{
    const dim3 aGrid(BlocksFor(rDest.iWidth), rDest.iHeight, rDest.iLanes);
    return Launch("copy", pStream, aGrid, 0, CopyKernel, rDest, rSource);
}
