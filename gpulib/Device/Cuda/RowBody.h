#pragma once

#include "gpulib/Device/Cuda/ProjBody.h"

// Bodies of the kernels that stream over projection rows, and of the sums over them.

CUDA_FN void RowBody(int iX, int iPosition, RowQuad aRows, const CombineParams& rP)
{
    int iProj;
    if (!ReadIndex(rP.aProjIndex, rP.iFirst + iPosition, rP.aSums.iHeight, iProj)) return;
    float* const pfSums = TexelOf(rP.aSums, iX, iProj, aRows);
    Quad aSum = Load(pfSums);
    ApplyRule(rP.aRule, iX, iProj, aRows, aSum);
    Store(pfSums, aSum);
}

CUDA_FN void RowBody(int iX, int iPosition, RowQuad aRows, const WeightParams& rP)
{
    int iRow = rP.iFirst + iPosition;
    const bool bByNumber = rP.eOperation == EWeight::eRecon || rP.eOperation == EWeight::eReproj;
    if (bByNumber && !ReadIndex(rP.aProjIndex, iRow, rP.aOut.iHeight, iRow)) return;
    Quad aValue = Load(TexelOf(rP.aIn, iX, iRow, aRows));
    const bool bWeight = rP.eOperation != EWeight::eCopy;
    const float fWeight = bWeight ? TableRow<float>(rP.aWeight, iRow)[iX] : 1.0f;
    for (float& rf : aValue.af)
        rf = rP.eOperation == EWeight::eReproj ? rf / fWeight : rf * fWeight;
    Store(TexelOf(rP.aOut, iX, iRow, aRows), aValue);
}

/// Adds the upper half of iStride partial sums to the lower; thread iThread adds one.
CUDA_FN void AddHalf(int iThread, int iStride, float* pfPartial)
{
    if (iThread < iStride) pfPartial[iThread] += pfPartial[iThread + iStride];
}

/// Columns iFirst, iFirst + 256, ... of one projection. A row counts as a multiple of 256 columns;
/// those past its end repeat the last pixel.
CUDA_FN Quad SumAbsPartial(int iFirst, int iProj, RowQuad aRows, const SumAbsParams& rP)
{
    Quad aSum = {};
    for (int i = iFirst; i - iFirst < rP.iProjX; i += g_iPartialSums)
    {
        const int iX = min(i, rP.iProjX - 1);
        const Quad aValue = Load(TexelOf(rP.aSource, iX, iProj, aRows));
        const bool bMinus = rP.aMinus.pvData != nullptr;
        const Quad aMinus = bMinus ? Load(TexelOf(rP.aMinus, iX, iProj, aRows)) : Quad();
        const float fWeight = TableRow<float>(rP.aWeight, iProj)[iX];
        for (int l = 0; l < 4; ++l)
            aSum.af[l] += AbsIfPresent(aValue.af[l] * fWeight - aMinus.af[l]);
    }
    return aSum;
}
