#pragma once

#include "gpulib/Device/Cuda/ProjBody.h"
#include "gpulib/Device/Limits.h"

// Bodies of the kernels that stream over projection rows, and of the sums over them.

/// One element of a measured row, weighted.
CUDA_FN float LoadTimes(const DeviceImage& rRaw, const DeviceImage& rWeight, int iX, int iProj,
                        int iLane)
{
    return LoadTexel(rRaw, iX, iProj, iLane) * LoadTexel(rWeight, iX, iProj, 0);
}

CUDA_FN void CombineBody(int iX, int iPosition, int iLane, const CombineParams& rP)
{
    int iProj;
    if (!ReadIndex(rP.aProjIndex, rP.iFirst + iPosition, rP.aOut.iHeight, iProj)) return;
    const float fRaw = LoadTimes(rP.aRaw, rP.aWeight, iX, iProj, iLane);
    const float fSum = LoadTexel(rP.aSums, iX, iProj, iLane);
    const bool bDiff = rP.eOperation == ECombine::eDiff;
    StoreTexel(rP.aOut, iX, iProj, iLane, bDiff ? fRaw - fSum : Ratio(fRaw, fSum));
}

CUDA_FN void WeightBody(int iX, int iPosition, int iLane, const WeightParams& rP)
{
    int iRow = rP.iFirst + iPosition;
    const bool bByNumber = rP.eOperation == EWeight::eRecon || rP.eOperation == EWeight::eReproj;
    if (bByNumber && !ReadIndex(rP.aProjIndex, iRow, rP.aOut.iHeight, iRow)) return;
    float fValue = LoadTexel(rP.aIn, iX, iRow, iLane);
    if (rP.eOperation != EWeight::eCopy)
    {
        const float fWeight = LoadTexel(rP.aWeight, iX, iRow, 0);
        fValue = rP.eOperation == EWeight::eReproj ? fValue / fWeight : fValue * fWeight;
    }
    StoreTexel(rP.aOut, iX, iRow, iLane, fValue);
}

/// Adds the upper half of iStride partial sums to the lower; thread iThread adds one.
CUDA_FN void AddHalf(int iThread, int iStride, float* pfPartial)
{
    if (iThread < iStride) pfPartial[iThread] += pfPartial[iThread + iStride];
}

CUDA_FN float LoadResidual(int iX, int iProj, int iLane, const SumAbsParams& rP)
{
    const float fValue = LoadTimes(rP.aSource, rP.aWeight, iX, iProj, iLane);
    return rP.aMinus.pvData ? fValue - LoadTexel(rP.aMinus, iX, iProj, iLane) : fValue;
}

/// Columns iThread, iThread + 256, ... of one row. It counts as a multiple of 256 columns; those
/// past its end repeat the last pixel.
CUDA_FN float SumAbsPartial(int iThread, int iProj, int iLane, const SumAbsParams& rP)
{
    float fSum = 0.0f;
    for (int i = iThread; i - iThread < rP.iProjX; i += g_iPartialSums)
        fSum += AbsIfPresent(LoadResidual(i < rP.iProjX ? i : rP.iProjX - 1, iProj, iLane, rP));
    return fSum;
}

/// Adds the totals of one list position to its accumulator, in the order of the rows.
/// \param pfTotals  shape [position][row]
CUDA_FN void AddTotals(int iPosition, const float* pfTotals, const SumAbsParams& rP)
{
    double* pdAccum = reinterpret_cast<double*>(RowOf(rP.aAccum, rP.iIter, 0)) + iPosition;
    double dSum = *pdAccum;
    const float* pfRow = pfTotals + static_cast<std::size_t>(iPosition) * rP.iRows;
    for (int l = 0; l < rP.iRows; ++l) dSum += static_cast<double>(pfRow[l]);
    *pdAccum = dSum;
}
