// Kernels that resample and compare projections. Their images have one lane, so the registers run
// along x. Included inside the namespace of an instruction set, which has defined AllTrue and
// Gather for its widest registers.

#include "gpulib/Device/TransformMath.h"

/// The first iCount columns, then fElse.
DEVICE_FN Wide LoadWide(const float* pfFrom, int iCount, float fElse)
{
    Wide vValue = Wide{} + fElse;
    for (int i = 0; i < iCount; ++i) vValue[i] = pfFrom[i];
    return vValue;
}

DEVICE_FN WideInt ColumnNumbers()
{
    WideInt vNumbers;
    for (int i = 0; i < TALVEN_VECTOR; ++i) vNumbers[i] = i;
    return vNumbers;
}

/// Bilinear value of the four pixels around positions that lie so far to the right of the left
/// ones and below the upper ones. Most have no use for Blend(), which costs more.
DEVICE_FN Wide Bilinear(Wide vUpperLeft, Wide vUpperRight, Wide vLowerLeft, Wide vLowerRight,
                        Wide vRight, Wide vDown)
{
    const Wide vValue = Between<Wide>(Between<Wide>(vUpperLeft, vUpperRight, vRight),
                                      Between<Wide>(vLowerLeft, vLowerRight, vRight), vDown);
    if (AllTrue(vValue == vValue)) return vValue;
    return Blend<Wide>(Blend<Wide>(vUpperLeft, vUpperRight, vRight),
                       Blend<Wide>(vLowerLeft, vLowerRight, vRight), vDown);
}

/// Bilinear reads at positions on the image. A position on a pixel reads this pixel alone.
DEVICE_FN Wide Sample(const DeviceImage& rImage, Wide vU, Wide vV)
{
    const float* pfImage = static_cast<const float*>(rImage.pvData);
    const WideInt vX = __builtin_convertvector(vU, WideInt),
                  vY = __builtin_convertvector(vV, WideInt);
    const Wide vRight = vU - __builtin_convertvector(vX, Wide);
    const Wide vDown = vV - __builtin_convertvector(vY, Wide);
    const int iX = vX[0], iY = vY[0];
    // A shift without rotation: neighbours lie next to each other.
    if (iX + TALVEN_VECTOR < rImage.iWidth &&
        AllTrue((vX == ColumnNumbers() + iX) & (vY == WideInt{} + iY)))
    {
        const float* pfUpper = pfImage + static_cast<std::size_t>(iY) * rImage.iWidth + iX;
        const float* pfLower = iY + 1 < rImage.iHeight ? pfUpper + rImage.iWidth : pfUpper;
        return Bilinear(LoadWide(pfUpper), LoadWide(pfUpper + 1), LoadWide(pfLower),
                        LoadWide(pfLower + 1), vRight, vDown);
    }
    const WideInt vToRight = (vRight > Wide{}) & 1;
    const WideInt vUpper = vY * rImage.iWidth + vX;
    const WideInt vLower = vUpper + ((vDown > Wide{}) & rImage.iWidth);
    return Bilinear(Gather(pfImage, vUpper), Gather(pfImage, vUpper + vToRight),
                    Gather(pfImage, vLower), Gather(pfImage, vLower + vToRight), vRight, vDown);
}

template <bool LOG>
DEVICE_FN Wide ScaleIntensity(Wide vValue, const float* pfScale)
{
    Wide vResult = Rescale<Wide>(vValue, pfScale);
    if (LOG)
    {
        vResult = Attenuation<Wide>(vResult, pfScale);
        for (int i = 0; i < TALVEN_VECTOR; ++i) vResult[i] = __builtin_logf(vResult[i]);
        vResult *= pfScale[4];
    }
    return LimitValue<Wide>(vResult, pfScale);
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
    const Wide vX = static_cast<float>(iX) + __builtin_convertvector(ColumnNumbers(), Wide);
    const Wide vU = MapU<Wide>(vX, rRow.fY, rRow.afMatrix),
               vV = MapV<Wide>(vX, rRow.fY, rRow.afMatrix);
    const WideInt vInside = IsOnImage<Wide>(vU, rRow.fLastU) & IsOnImage<Wide>(vV, rRow.fLastV);
    Wide vMiss = {}, vValue;
    if (AllTrue(vInside))
        vValue = ScaleIntensity<LOG>(Sample(rRow.aMeasured, vU, vV), rRow.afScale);
    else
    {
        const Wide vRead = Sample(rRow.aMeasured, ClampToImage<Wide>(vU, rRow.fLastU),
                                  ClampToImage<Wide>(vV, rRow.fLastV));
        vMiss = vInside ? Wide{} : Wide{} + 1.0f;
        vValue = MarkMissing<Wide>(ScaleIntensity<LOG>(vRead, rRow.afScale), vMiss);
    }
    StoreWide(pfOut, vValue);
    StoreWide(pfMiss, vMiss);
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
    Wide avSums[eCompareSums] = {};
    int x = iFirst;
    for (; x + TALVEN_VECTOR <= iProjX; x += g_iPartialSums)
        AddPixel<Wide>(avSums, LoadWide(pfA + x), LoadWide(pfB + x), LoadWide(pfMiss + x));
    if (x < iProjX)
        AddPixel<Wide>(avSums, LoadWide(pfA + x, iProjX - x, 0.0f),
                       LoadWide(pfB + x, iProjX - x, 0.0f), LoadWide(pfMiss + x, iProjX - x, 1.0f));
    for (int q = 0; q < eCompareSums; ++q) StoreWide(pafPartial[q] + iFirst, avSums[q]);
}

/// Sum of all partial sums, by halves.
DEVICE_FN float SumByHalves(float* pfPartial)
{
    int iStride = g_iPartialSums / 2;
    for (; iStride >= TALVEN_VECTOR; iStride /= 2)
        for (int t = 0; t < iStride; t += TALVEN_VECTOR)
            StoreWide(pfPartial + t, LoadWide(pfPartial + t) + LoadWide(pfPartial + t + iStride));
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
