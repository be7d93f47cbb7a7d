#pragma once

#include "gpulib/Device/Cuda/Texels.h"
#include "gpulib/Device/KernelParams.h"
#include "gpulib/Device/Limits.h"
#include "gpulib/Device/TransformMath.h"

// Bodies of the kernels that resample and compare projections.

/// Pixel iX of image row iRow.
template <class SAMPLER>
CUDA_FN void TransformBody(int iX, int iRow, const TransformParams& rP)
{
    const float fX = static_cast<float>(iX), fY = static_cast<float>(rP.iStartY + iRow);
    const float fU = MapU(fX, fY, rP.afMatrix), fV = MapV(fX, fY, rP.afMatrix);
    const float fLastU = static_cast<float>(rP.aMeasured.iWidth - 1);
    const float fLastV = static_cast<float>(rP.aMeasured.iHeight - 1);
    const bool bInside = IsOnImage(fU, fLastU) & IsOnImage(fV, fLastV);
    float fValue = Rescale(
        SAMPLER::Sample(rP.aMeasured, ClampToImage(fU, fLastU), ClampToImage(fV, fLastV), 0),
        rP.afScale);
    if (rP.bLog) fValue = logf(Attenuation(fValue, rP.afScale)) * rP.afScale[4];
    fValue = LimitValue(fValue, rP.afScale);
    const float fMiss = bInside ? 0.0f : 1.0f;
    StoreTexel(rP.aOut, iX, iRow, 0, bInside ? fValue : MarkMissing(fValue, fMiss));
    StoreTexel(rP.aMiss, iX, iRow, 0, fMiss);
}

/// Columns iThread, iThread + 256, ... of row iRow: one partial sum per quantity.
CUDA_FN void ComparePartial(int iThread, int iRow, const CompareParams& rP, float* pfSums)
{
    for (int q = 0; q < eCompareSums; ++q) pfSums[q] = 0.0f;
    for (int x = iThread; x < rP.iProjX; x += g_iPartialSums)
        AddPixel(pfSums, LoadTexel(rP.aAligned, x, iRow, 0), LoadTexel(rP.aTransed, x, iRow, 0),
                 LoadTexel(rP.aMiss, x, iRow, 0));
}
