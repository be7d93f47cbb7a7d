// Kernels over projection rows.

#include "gpulib/Device/Cuda/CudaBackend.h"
#include "gpulib/Device/Cuda/Launch.h"
#include "gpulib/Device/Cuda/RowBody.h"

extern __shared__ float s_afShared[];  // as large as the launch says

namespace
{
__global__ void __launch_bounds__(g_iThreads)
    CombineKernel(const __grid_constant__ CombineParams aP)
{
    const int iX = blockIdx.x * g_iThreads + threadIdx.x;
    if (iX < aP.iProjX) CombineBody(iX, blockIdx.y, blockIdx.z, aP);
}

__global__ void __launch_bounds__(g_iThreads) WeightKernel(const __grid_constant__ WeightParams aP)
{
    const int iX = blockIdx.x * g_iThreads + threadIdx.x;
    if (iX < aP.iProjX) WeightBody(iX, blockIdx.y, blockIdx.z, aP);
}

/// One block for each list position and row of the batch.
__global__ void __launch_bounds__(g_iThreads)
    SumAbsKernel(const __grid_constant__ SumAbsParams aP, float* pfTotals)
{
    const int iThread = threadIdx.x, iPosition = blockIdx.x, iLane = blockIdx.y;
    int iProj;
    const bool bThere = ReadIndex(aP.aProjIndex, iPosition, aP.aSource.iHeight, iProj);
    s_afShared[iThread] = bThere ? SumAbsPartial(iThread, iProj, iLane, aP) : 0.0f;
    __syncthreads();
    for (int iStride = g_iThreads / 2; iStride > 0; iStride /= 2)
    {
        AddHalf(iThread, iStride, s_afShared);
        __syncthreads();
    }
    if (iThread == 0)
        pfTotals[static_cast<std::size_t>(iPosition) * aP.iRows + iLane] = s_afShared[0];
}

__global__ void __launch_bounds__(g_iThreads)
    AddTotalsKernel(const __grid_constant__ SumAbsParams aP, const float* pfTotals)
{
    const int iPosition = blockIdx.x * g_iThreads + threadIdx.x;
    if (iPosition < aP.iProjs) AddTotals(iPosition, pfTotals, aP);
}
}  // namespace

bool CCudaBackend::mCombine(const CombineParams& rP)
{
    const dim3 aGrid(BlocksFor(rP.iProjX), rP.iEnd - rP.iFirst, rP.aOut.iLanes);
    return Launch("Combine", mStream(), aGrid, 0, CombineKernel, rP);
}

bool CCudaBackend::mWeight(const WeightParams& rP)
{
    const dim3 aGrid(BlocksFor(rP.iProjX), rP.iEnd - rP.iFirst, rP.aOut.iLanes);
    return Launch("Weight", mStream(), aGrid, 0, WeightKernel, rP);
}

bool CCudaBackend::mSumAbs(const SumAbsParams& rP)
{
    Device* const pDevice = mDevice();
    if (!pDevice) return false;
    CCudaBuffer& rTotals = pDevice->aTotals;
    if (!rTotals.Reserve(std::size_t(rP.iProjs) * rP.iRows * sizeof(float))) return false;
    return Launch("SumAbs", mStream(), dim3(rP.iProjs, rP.iRows, 1), g_iThreads * sizeof(float),
                  SumAbsKernel, rP, rTotals.GetFloats()) &&
           Launch("SumAbs", mStream(), dim3(BlocksFor(rP.iProjs), 1, 1), 0, AddTotalsKernel, rP,
                  rTotals.GetFloats());
}
