// Transform and compare.

#include "gpulib/Device/Cuda/AlignBody.h"
#include "gpulib/Device/Cuda/CudaBackend.h"
#include "gpulib/Device/Cuda/Launch.h"
#include "gpulib/Device/Cuda/RowBody.h"

extern __shared__ float s_afShared[];  // as large as the launch says

namespace
{
__global__ void __launch_bounds__(g_iThreads)
    TransformKernel(const __grid_constant__ TransformParams aP)
{
    const int iX = blockIdx.x * g_iThreads + threadIdx.x;
    if (iX < aP.iProjX) TransformBody(iX, blockIdx.y, aP);
}

/// One block for each row.
__global__ void __launch_bounds__(g_iThreads)
    CompareKernel(const __grid_constant__ CompareParams aP)
{
    const int iThread = threadIdx.x, iRow = blockIdx.x;
    float afSums[eCompareSums];
    ComparePartial(iThread, iRow, aP, afSums);
    for (int q = 0; q < eCompareSums; ++q) s_afShared[q * g_iThreads + iThread] = afSums[q];
    __syncthreads();
    for (int iStride = g_iThreads / 2; iStride > 0; iStride /= 2)
    {
        for (int q = 0; q < eCompareSums; ++q)
            AddHalf(iThread, iStride, s_afShared + q * g_iThreads);
        __syncthreads();
    }
    if (iThread < eCompareSums)
        RowOf(aP.aSums, iThread)[aP.iFirst + iRow] = s_afShared[iThread * g_iThreads];
}
}  // namespace

bool CCudaBackend::mTransform(const TransformParams& rP)
{
    const dim3 aGrid(BlocksFor(rP.iProjX), rP.iRows, 1);
    return mLaunch("Transform", aGrid, 0, TransformKernel, rP);
}

bool CCudaBackend::mCompareSums(const CompareParams& rP)
{
    return mLaunch("CompareSums", dim3(rP.iRows, 1, 1), eCompareSums * g_iThreads * sizeof(float),
                   CompareKernel, rP);
}
