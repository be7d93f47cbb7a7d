#include "gpulib/Device/Cuda/Launch.h"
#include "gpulib/Device/Cuda/Texels.h"
#include "gpulib/Device/Cuda/Transfer.h"

namespace
{
/// Lanes of one group of an image.
__host__ __device__ __forceinline__ int CountLanes(const DeviceImage& rImage)
{
    return rImage.iLanes < g_iGroupLanes ? rImage.iLanes : g_iGroupLanes;
}

/// A thread for each value of a group of lanes, in the order of the image. UP: to the image.
template <bool UP>
__global__ void __launch_bounds__(g_iThreads)
    TransferKernel(const __grid_constant__ ImageRegion aR, float* pfLinear)
{
    const int iLanes = CountLanes(aR.aImage);
    const int iValue = blockIdx.x * g_iThreads + threadIdx.x, iX = iValue / iLanes;
    const int iY = blockIdx.y, iInGroup = iValue % iLanes, iLane = blockIdx.z * iLanes + iInGroup;
    if (iX >= aR.iWidth || (!UP && iLane >= aR.iLanes)) return;
    float& rfTexel = RowOf(aR.aImage, aR.iY0 + iY,
                           blockIdx.z)[(static_cast<std::size_t>(aR.iX0) + iX) * iLanes + iInGroup];
    float* const pfValue =
        pfLinear + (static_cast<std::size_t>(iY) * aR.iLanes + iLane) * aR.iWidth + iX;
    if (!UP)
        *pfValue = rfTexel;
    else
        rfTexel = iLane < aR.iLanes ? *pfValue : 0.0f;
}

dim3 GridFor(const ImageRegion& rR)
{
    const DeviceImage& rImage = rR.aImage;
    return dim3(BlocksFor(static_cast<long long>(rR.iWidth) * CountLanes(rImage)), rR.iHeight,
                CountGroups(rImage));
}
}  // namespace

bool Scatter(const ImageRegion& rRegion, float* pfLinear, cudaStream_t pStream)
{
    return Launch("upload", pStream, GridFor(rRegion), 0, TransferKernel<true>, rRegion, pfLinear);
}

bool Gather(const ImageRegion& rRegion, float* pfLinear, cudaStream_t pStream)
{
    return Launch("download", pStream, GridFor(rRegion), 0, TransferKernel<false>, rRegion,
                  pfLinear);
}
