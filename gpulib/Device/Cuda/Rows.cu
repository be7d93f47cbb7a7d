// Kernels over projection rows.

#include "gpulib/Device/Cuda/CudaBackend.h"
#include "gpulib/Device/Cuda/Launch.h"
#include "gpulib/Device/Cuda/RowBody.h"

extern __shared__ float s_afShared[];  // as large as the launch says

namespace
{
constexpr int g_iColumns = g_iThreads / g_iQuads;  // of a block

template <class PARAMS>
__global__ void __launch_bounds__(g_iThreads) RowKernel(const __grid_constant__ PARAMS aP)
{
    const int iX = blockIdx.x * g_iColumns + threadIdx.x / g_iQuads;
    if (iX < aP.iProjX) RowBody(iX, blockIdx.y, RowQuad::Of(blockIdx.z, threadIdx.x), aP);
}

/// One block for each list position, which takes one group of rows after the other and adds their
/// totals to the accumulator in the order of the rows. A thread has eight of the 256 partial sums,
/// 32 apart, of four rows: it adds the first halves alone.
__global__ void __launch_bounds__(g_iThreads) SumAbsKernel(const __grid_constant__ SumAbsParams aP)
{
    const int iThread = threadIdx.x;
    double* const pdAccum = reinterpret_cast<double*>(RowOf(aP.aAccum, aP.iIter)) + blockIdx.x;
    int iProj;
    if (!ReadIndex(aP.aProjIndex, blockIdx.x, aP.aSource.iHeight, iProj)) return;
    for (int iRow = 0; iRow < aP.iRows; iRow += g_iGroupLanes)
    {
        const RowQuad aRows = RowQuad::Of(iRow / g_iGroupLanes, iThread);
        constexpr int iSums = g_iPartialSums / g_iColumns;
        Quad aaSum[iSums];
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
        for (int l = 0; iThread == 0 && l < min(g_iGroupLanes, aP.iRows - iRow); ++l)
            *pdAccum += static_cast<double>(s_afShared[l]);
        __syncthreads();
    }
}

dim3 GridFor(const DeviceImage& rImage, int iProjX, int iRows)
{
    return dim3(BlocksFor(iProjX, g_iColumns), iRows, CountGroups(rImage));
}
}  // namespace

bool CCudaBackend::mCombine(const CombineParams& rP)
{
    return mLaunch("Combine", GridFor(rP.aSums, rP.iProjX, rP.iEnd - rP.iFirst), 0,
                   RowKernel<CombineParams>, rP);
}

bool CCudaBackend::mWeight(const WeightParams& rP)
{
    return mLaunch("Weight", GridFor(rP.aOut, rP.iProjX, rP.iEnd - rP.iFirst), 0,
                   RowKernel<WeightParams>, rP);
}

bool CCudaBackend::mSumAbs(const SumAbsParams& rP)
{
    return mLaunch("SumAbs", dim3(rP.iProjs, 1, 1), 4 * g_iThreads * sizeof(float), SumAbsKernel,
                   rP);
}
