// Kernels that resample and compare projections. Their images have one lane, so the registers run
// along x. Included inside the namespace of an instruction set, which has defined AllTrue and
// Gather for its widest registers.

#include "gpulib/Device/TransformMath.h"

using FX = typename VectorOf<TALVEN_VECTOR>::Type;
typedef int IX __attribute__((vector_size(4 * TALVEN_VECTOR)));

DEVICE_FN FX LoadX(const float* pfFrom)
{
    FX vValue;
    __builtin_memcpy(&vValue, pfFrom, sizeof(vValue));
    return vValue;
}

/// The first iCount columns, then fElse.
DEVICE_FN FX LoadX(const float* pfFrom, int iCount, float fElse)
{
    FX vValue = FX{} + fElse;
    for (int i = 0; i < iCount; ++i) vValue[i] = pfFrom[i];
    return vValue;
}

DEVICE_FN void StoreX(float* pfTo, FX vValue)
{
    __builtin_memcpy(pfTo, &vValue, sizeof(vValue));
}

DEVICE_FN IX ColumnNumbers()
{
    IX vNumbers;
    for (int i = 0; i < TALVEN_VECTOR; ++i) vNumbers[i] = i;
    return vNumbers;
}

/// As Between(), but vB does not count where it has no weight: it may be infinite.
DEVICE_FN FX Blend(FX vA, FX vB, FX vPart)
{
    return vPart > FX{} ? Between<FX>(vA, vB, vPart) : vA;
}

/// Bilinear value of the four pixels around positions that lie so far to the right of the left
/// ones and below the upper ones. Most have no use for Blend(), which costs more.
DEVICE_FN FX Bilinear(FX vUpperLeft, FX vUpperRight, FX vLowerLeft, FX vLowerRight, FX vRight,
                      FX vDown)
{
    const FX vValue = Between<FX>(Between<FX>(vUpperLeft, vUpperRight, vRight),
                                  Between<FX>(vLowerLeft, vLowerRight, vRight), vDown);
    if (AllTrue(vValue == vValue)) return vValue;
    return Blend(Blend(vUpperLeft, vUpperRight, vRight), Blend(vLowerLeft, vLowerRight, vRight),
                 vDown);
}

/// Bilinear reads at positions on the image. A position on a pixel reads this pixel alone.
DEVICE_FN FX Sample(const DeviceImage& rImage, FX vU, FX vV)
{
    const float* pfImage = static_cast<const float*>(rImage.pvData);
    const IX vX = __builtin_convertvector(vU, IX), vY = __builtin_convertvector(vV, IX);
    const FX vRight = vU - __builtin_convertvector(vX, FX);
    const FX vDown = vV - __builtin_convertvector(vY, FX);
    const int iX = vX[0], iY = vY[0];
    // A shift without rotation: neighbours lie next to each other.
    if (iX + TALVEN_VECTOR < rImage.iWidth &&
        AllTrue((vX == ColumnNumbers() + iX) & (vY == IX{} + iY)))
    {
        const float* pfUpper = pfImage + static_cast<std::size_t>(iY) * rImage.iWidth + iX;
        const float* pfLower = iY + 1 < rImage.iHeight ? pfUpper + rImage.iWidth : pfUpper;
        return Bilinear(LoadX(pfUpper), LoadX(pfUpper + 1), LoadX(pfLower), LoadX(pfLower + 1),
                        vRight, vDown);
    }
    const IX vToRight = (vRight > FX{}) & 1;
    const IX vUpper = vY * rImage.iWidth + vX;
    const IX vLower = vUpper + ((vDown > FX{}) & rImage.iWidth);
    return Bilinear(Gather(pfImage, vUpper), Gather(pfImage, vUpper + vToRight),
                    Gather(pfImage, vLower), Gather(pfImage, vLower + vToRight), vRight, vDown);
}

template <bool LOG>
DEVICE_FN FX ScaleIntensity(FX vValue, const float* pfScale)
{
    FX vResult = Rescale<FX>(vValue, pfScale);
    if (LOG)
    {
        vResult = Attenuation<FX>(vResult, pfScale);
        for (int i = 0; i < TALVEN_VECTOR; ++i) vResult[i] = __builtin_logf(vResult[i]);
        vResult *= pfScale[4];
    }
    return LimitValue<FX>(vResult, pfScale);
}

/// What a row of the grid is made of: a copy, so that the compiler sees that no store changes it.
struct TransformRow
{
    DeviceImage aMeasured;
    float afMatrix[6], afScale[6];
    float fLastU, fLastV;
    float fY;
};

/// A register of columns from iX on.
template <bool LOG>
DEVICE_FN void TransformBlock(const TransformRow& rRow, int iX, float* pfOut, float* pfMiss)
{
    const FX vX = static_cast<float>(iX) + __builtin_convertvector(ColumnNumbers(), FX);
    const FX vU = MapU<FX>(vX, rRow.fY, rRow.afMatrix), vV = MapV<FX>(vX, rRow.fY, rRow.afMatrix);
    const IX vInside = IsOnImage<FX>(vU, rRow.fLastU) & IsOnImage<FX>(vV, rRow.fLastV);
    FX vMiss = {}, vValue;
    if (AllTrue(vInside))
        vValue = ScaleIntensity<LOG>(Sample(rRow.aMeasured, vU, vV), rRow.afScale);
    else
    {
        const FX vRead = Sample(rRow.aMeasured, ClampToImage<FX>(vU, rRow.fLastU),
                                ClampToImage<FX>(vV, rRow.fLastV));
        vMiss = vInside ? FX{} : FX{} + 1.0f;
        vValue = MarkMissing<FX>(ScaleIntensity<LOG>(vRead, rRow.afScale), vMiss);
    }
    StoreX(pfOut, vValue);
    StoreX(pfMiss, vMiss);
}

template <bool LOG>
static void TransformColumns(const TransformRow aRow, int iProjX, float* __restrict pfOut,
                             float* __restrict pfMiss)
{
    if (iProjX < TALVEN_VECTOR)
    {
        float afOut[TALVEN_VECTOR], afMiss[TALVEN_VECTOR];
        TransformBlock<LOG>(aRow, 0, afOut, afMiss);
        __builtin_memcpy(pfOut, afOut, sizeof(float) * static_cast<std::size_t>(iProjX));
        __builtin_memcpy(pfMiss, afMiss, sizeof(float) * static_cast<std::size_t>(iProjX));
        return;
    }
    int x = 0;
    for (; x + TALVEN_VECTOR <= iProjX; x += TALVEN_VECTOR)
        TransformBlock<LOG>(aRow, x, pfOut + x, pfMiss + x);
    x = iProjX - TALVEN_VECTOR;  // the end of the row, some of it for a second time
    TransformBlock<LOG>(aRow, x, pfOut + x, pfMiss + x);
}

static void Transform(const TransformParams& rP, Share aRows)
{
    TransformRow aRow;
    aRow.aMeasured = rP.aMeasured;
    for (int i = 0; i < 6; ++i)
    {
        aRow.afMatrix[i] = rP.afMatrix[i];
        aRow.afScale[i] = rP.afScale[i];
    }
    aRow.fLastU = static_cast<float>(rP.aMeasured.iWidth - 1);
    aRow.fLastV = static_cast<float>(rP.aMeasured.iHeight - 1);
    for (int j = aRows.iFirst; j < aRows.iEnd; ++j)
    {
        aRow.fY = static_cast<float>(rP.iStartY + j);
        if (rP.bLog)
            TransformColumns<true>(aRow, rP.iProjX, RowOf(rP.aOut, j), RowOf(rP.aMiss, j));
        else
            TransformColumns<false>(aRow, rP.iProjX, RowOf(rP.aOut, j), RowOf(rP.aMiss, j));
    }
}

/// Columns iFirst, iFirst + g_iPartialSums, ... of a row, for as many neighbours as a register
/// holds.
DEVICE_FN void SumColumns(const float* pfA, const float* pfB, const float* pfMiss, int iFirst,
                          int iProjX, float (*pafPartial)[g_iPartialSums])
{
    FX avSums[eCompareSums] = {};
    int x = iFirst;
    for (; x + TALVEN_VECTOR <= iProjX; x += g_iPartialSums)
        AddPixel<FX>(avSums, LoadX(pfA + x), LoadX(pfB + x), LoadX(pfMiss + x));
    if (x < iProjX)
        AddPixel<FX>(avSums, LoadX(pfA + x, iProjX - x, 0.0f), LoadX(pfB + x, iProjX - x, 0.0f),
                     LoadX(pfMiss + x, iProjX - x, 1.0f));
    for (int q = 0; q < eCompareSums; ++q) StoreX(pafPartial[q] + iFirst, avSums[q]);
}

/// Sum of all partial sums, by halves.
DEVICE_FN float SumByHalves(float* pfPartial)
{
    int iStride = g_iPartialSums / 2;
    for (; iStride >= TALVEN_VECTOR; iStride /= 2)
        for (int t = 0; t < iStride; t += TALVEN_VECTOR)
            StoreX(pfPartial + t, LoadX(pfPartial + t) + LoadX(pfPartial + t + iStride));
    for (; iStride > 0; iStride /= 2)
        for (int t = 0; t < iStride; ++t) pfPartial[t] += pfPartial[t + iStride];
    return pfPartial[0];
}

static void CompareSums(const CompareParams& rP, Share aRows)
{
    alignas(64) float aafPartial[eCompareSums][g_iPartialSums];
    for (int j = aRows.iFirst; j < aRows.iEnd; ++j)
    {
        const float *pfA = RowOf(rP.aAligned, j), *pfB = RowOf(rP.aTransed, j);
        const float* pfMiss = RowOf(rP.aMiss, j);
        for (int t = 0; t < g_iPartialSums; t += TALVEN_VECTOR)
            SumColumns(pfA, pfB, pfMiss, t, rP.iProjX, aafPartial);
        for (int q = 0; q < eCompareSums; ++q)
            RowOf(rP.aSums, q)[rP.iFirst + j] = SumByHalves(aafPartial[q]);
    }
}
