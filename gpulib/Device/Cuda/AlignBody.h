#pragma once

#include "gpulib/Device/Cuda/Texels.h"
#include "gpulib/Device/KernelParams.h"
#include "gpulib/Device/Limits.h"
#include "gpulib/Device/TransformMath.h"

// Bodies of the kernels that resample and compare projections.

/// Bilinear value at a position on a one-lane image. A position on a pixel reads this pixel alone.
CUDA_FN float Sample(const DeviceImage& rImage, float fU, float fV)
{
    const float fLeft = floorf(fU), fUpper = floorf(fV);
    const float fRight = fU - fLeft, fDown = fV - fUpper;
    const float* const pfUpper = RowOf(rImage, static_cast<int>(fUpper)) + static_cast<int>(fLeft);
    const float* const pfLower = fDown > 0.0f ? pfUpper + rImage.iWidth : pfUpper;
    const int iRight = fRight > 0.0f ? 1 : 0;
    return Blend(Blend(pfUpper[0], pfUpper[iRight], fRight),
                 Blend(pfLower[0], pfLower[iRight], fRight), fDown);
}

/// Pixel iX of image row iRow.
CUDA_FN void TransformBody(int iX, int iRow, const TransformParams& rP)
{
    const float fX = static_cast<float>(iX), fY = static_cast<float>(rP.iStartY + iRow);
    const float fU = MapU(fX, fY, rP.afMatrix), fV = MapV(fX, fY, rP.afMatrix);
    const float fLastU = static_cast<float>(rP.aMeasured.iWidth - 1);
    const float fLastV = static_cast<float>(rP.aMeasured.iHeight - 1);
    const bool bInside = IsOnImage(fU, fLastU) & IsOnImage(fV, fLastV);
    float fValue = Rescale(Sample(rP.aMeasured, ClampToImage(fU, fLastU), ClampToImage(fV, fLastV)),
                           rP.afScale);
    if (rP.bLog) fValue = logf(Attenuation(fValue, rP.afScale)) * rP.afScale[4];
    fValue = LimitValue(fValue, rP.afScale);
    const float fMiss = bInside ? 0.0f : 1.0f;
    RowOf(rP.aOut, iRow)[iX] = bInside ? fValue : MarkMissing(fValue, fMiss);
    RowOf(rP.aMiss, iRow)[iX] = fMiss;
}

/// Columns iThread, iThread + 256, ... of row iRow: one partial sum per quantity.
CUDA_FN void ComparePartial(int iThread, int iRow, const CompareParams& rP, float* pfSums)
{
    for (int q = 0; q < eCompareSums; ++q) pfSums[q] = 0.0f;
    for (int x = iThread; x < rP.iProjX; x += g_iPartialSums)
        AddPixel(pfSums, RowOf(rP.aAligned, iRow)[x], RowOf(rP.aTransed, iRow)[x],
                 RowOf(rP.aMiss, iRow)[x]);
}
