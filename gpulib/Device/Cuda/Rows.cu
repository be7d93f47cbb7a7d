// Kernels over projection rows.

#include "gpulib/Device/Cuda/CudaBackend.h"
#include "gpulib/Device/Cuda/Launch.h"
#include "gpulib/Device/Cuda/RowBody.h"

extern __shared__ float s_afShared[];  // as large as the launch says

namespace
{
constexpr int g_iColumns = g_iThreads / g_iQuads;  // of a block

__global__ void __launch_bounds__(g_iThreads)
    CombineKernel(const __grid_constant__ CombineParams aP)
{
    const int iX = blockIdx.x * g_iColumns + threadIdx.x / g_iQuads;
    if (iX < aP.iProjX) CombineBody(iX, blockIdx.y, RowQuad::Of(blockIdx.z, threadIdx.x), aP);
}

__global__ void __launch_bounds__(g_iThreads) WeightKernel(const __grid_constant__ WeightParams aP)
{
    const int iX = blockIdx.x * g_iColumns + threadIdx.x / g_iQuads;
    if (iX < aP.iProjX) WeightBody(iX, blockIdx.y, RowQuad::Of(blockIdx.z, threadIdx.x), aP);
}

/// One block for each list position and group of rows. A thread has eight of the 256 partial sums,
/// 32 apart, of four rows: it adds the first halves alone.
__global__ void __launch_bounds__(g_iThreads)
    SumAbsKernel(const __grid_constant__ SumAbsParams aP, float* pfTotals)
{
    const int iThread = threadIdx.x, iPosition = blockIdx.x;
    const RowQuad aRows = RowQuad::Of(blockIdx.y, iThread);
    int iProj;
    const bool bThere = ReadIndex(aP.aProjIndex, iPosition, aP.aSource.iHeight, iProj);
    constexpr int iSums = g_iPartialSums / g_iColumns;
    Quad aaSum[iSums] = {};
    if (bThere)
#pragma unroll
        for (int k = 0; k < iSums; ++k)
            aaSum[k] = SumAbsPartial(iThread / g_iQuads + k * g_iColumns, iProj, aRows, aP);
#pragma unroll
    for (int iStride = iSums / 2; iStride > 0; iStride /= 2)
        for (int k = 0; k < iStride; ++k) AddWeighted(aaSum[k], 1.0f, aaSum[k + iStride]);
    Store(s_afShared + iThread * 4, aaSum[0]);  // [column][row]
    __syncthreads();
    for (int iStride = g_iColumns / 2; iStride > 0; iStride /= 2)
    {
        for (int i = iThread; i < iStride * g_iGroupLanes; i += g_iThreads)
            AddHalf(i, iStride * g_iGroupLanes, s_afShared);
        __syncthreads();
    }
    if (iThread < g_iGroupLanes)
        pfTotals[static_cast<std::size_t>(iPosition) * aP.aSource.iLanes +
                 aRows.iGroup * g_iGroupLanes + iThread] = s_afShared[iThread];
}

__global__ void __launch_bounds__(g_iThreads)
    AddTotalsKernel(const __grid_constant__ SumAbsParams aP, const float* pfTotals)
{
    const int iPosition = blockIdx.x * g_iThreads + threadIdx.x;
    if (iPosition < aP.iProjs) AddTotals(iPosition, pfTotals, aP);
}

dim3 GridFor(const DeviceImage& rImage, int iProjX, int iRows)
{
    return dim3(BlocksFor(iProjX, g_iColumns), iRows, CountGroups(rImage));
}
}  // namespace

bool CCudaBackend::mCombine(const CombineParams& rP)
{
    return mLaunch("Combine", GridFor(rP.aSums, rP.iProjX, rP.iEnd - rP.iFirst), 0, CombineKernel,
                   rP);
}

bool CCudaBackend::mWeight(const WeightParams& rP)
{
    return mLaunch("Weight", GridFor(rP.aOut, rP.iProjX, rP.iEnd - rP.iFirst), 0, WeightKernel, rP);
}

bool CCudaBackend::mSumAbs(const SumAbsParams& rP)
{
    Device* const pDevice = mDevice();
    if (!pDevice) return false;
    CCudaBuffer& rTotals = pDevice->aTotals;
    if (!rTotals.Reserve(std::size_t(rP.iProjs) * rP.aSource.iLanes * sizeof(float))) return false;
    return mLaunch("SumAbs", dim3(rP.iProjs, CountGroups(rP.aSource), 1),
                   4 * g_iThreads * sizeof(float), SumAbsKernel, rP, rTotals.GetFloats()) &&
           mLaunch("SumAbs", dim3(BlocksFor(rP.iProjs), 1, 1), 0, AddTotalsKernel, rP,
                   rTotals.GetFloats());
}
