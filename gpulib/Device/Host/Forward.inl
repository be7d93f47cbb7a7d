// Forward projection. Included inside the namespace of an instruction set.
//
// The slice is cut into tiles that stay in the cache; every projection of the set passes over a
// tile before the next one is taken. A sample belongs to the tile that holds the texel to its
// lower left, so each sample is counted once and samples that cannot touch the slice never.

constexpr int g_iRays = 16;     // neighbouring rays whose limits are found together
constexpr int g_iSamples = 16;  // consecutive samples of a ray whose weights are found together

/// Base texels [iX0, iX1) x [iZ0, iZ1).
struct Tile
{
    int iX0, iX1, iZ0, iZ1;
};

/// Whether sample i has reached fLimit: false, then true along the ray for either sign of slope.
DEVICE_FN bool HasReached(float fMiddle, float fSlope, float fHalf, float fLimit, int i)
{
    return (RaySample(fMiddle, fSlope, fHalf, i) >= fLimit) != (fSlope < 0.0f);
}

/// First sample of 0 .. iSamples that has reached fLimit, by bisection.
static int SearchLimit(float fMiddle, float fSlope, float fHalf, float fLimit, int iSamples)
{
    int iLow = 0, iHigh = iSamples;
    while (iLow < iHigh)
    {
        const int iMid = iLow + (iHigh - iLow) / 2;
        if (HasReached(fMiddle, fSlope, fHalf, fLimit, iMid))
            iHigh = iMid;
        else
            iLow = iMid + 1;
    }
    return iLow;
}

/// The same for neighbouring rays: an estimate, put right by the exact comparison next to it.
DEVICE_FN void FindLimits(const float* pfMiddle, float fSlope, float fHalf, float fLimit,
                          int iSamples, int* piLimit)
{
    const float fInverse = 1.0f / fSlope;
    const float fLast = static_cast<float>(iSamples);
    int aiWrong[g_iRays];
    for (int r = 0; r < g_iRays; ++r)
    {
        const float fGuess = fHalf + (fLimit - pfMiddle[r]) * fInverse - 1.0f;
        const float fPositive = fGuess > 0.0f ? fGuess : 0.0f;  // also for NaN
        const int iStart = static_cast<int>(fPositive < fLast ? fPositive : fLast);
        int iLimit = iStart;
        for (int k = 0; k < 3; ++k)
            iLimit += !HasReached(pfMiddle[r], fSlope, fHalf, fLimit, iStart + k);
        const bool bEarlier =
            iStart > 0 && HasReached(pfMiddle[r], fSlope, fHalf, fLimit, iStart - 1);
        aiWrong[r] = bEarlier | (iLimit == iStart + 3);
        piLimit[r] = iLimit < iSamples ? iLimit : iSamples;
    }
    for (int r = 0; r < g_iRays; ++r)
        if (aiWrong[r]) piLimit[r] = SearchLimit(pfMiddle[r], fSlope, fHalf, fLimit, iSamples);
}

/// Samples [piFirst, piEnd) of each ray whose coordinate lies in [fLow, fHigh).
DEVICE_FN void FindSpan(const float* pfMiddle, float fSlope, float fHalf, float fLow, float fHigh,
                        int iSamples, int* piFirst, int* piEnd)
{
    const bool bDown = fSlope < 0.0f;
    FindLimits(pfMiddle, fSlope, fHalf, bDown ? fHigh : fLow, iSamples, piFirst);
    FindLimits(pfMiddle, fSlope, fHalf, bDown ? fLow : fHigh, iSamples, piEnd);
}

/// Adds samples [iFirst, iEnd) of one ray to pfSum; pfTile is the texel (iX0, iZ0) of the tile.
template <int LANES>
DEVICE_FN void AddRay(const RayGeometry& rRays, float fMiddleX, float fMiddleZ, const Tile& rTile,
                      const float* pfTile, int iPitch, int iFirst, int iEnd, float* pfSum)
{
    alignas(64) int aiOffset[g_iSamples];
    alignas(64) float af00[g_iSamples], af01[g_iSamples], af10[g_iSamples], af11[g_iSamples];
    Lanes<LANES> a00 = Load<LANES>(pfSum), a01 = Fill<LANES>(0.0f);
    Lanes<LANES> a10 = a01, a11 = a01;
    for (int iBlock = iFirst; iBlock < iEnd; iBlock += g_iSamples)
    {
        for (int k = 0; k < g_iSamples; ++k)
        {
            const float fX = RaySample(fMiddleX, -rRays.fSin, rRays.fHalf, iBlock + k);
            const float fZ = RaySample(fMiddleZ, rRays.fCos, rRays.fHalf, iBlock + k);
            const int iX = static_cast<int>(fX);  // not negative where it counts
            const int iZ = static_cast<int>(fZ);
            const float fRight = fX - static_cast<float>(iX);
            const float fUp = fZ - static_cast<float>(iZ);
            aiOffset[k] = (iZ - rTile.iZ0) * iPitch + (iX - rTile.iX0) * LANES;
            af11[k] = fRight * fUp;
            af01[k] = fRight - af11[k];
            af10[k] = fUp - af11[k];
            af00[k] = (1.0f - fRight) - af10[k];
        }
        const int iCount = iEnd - iBlock < g_iSamples ? iEnd - iBlock : g_iSamples;
        for (int k = 0; k < iCount; ++k)
        {
            const float* pfLower = pfTile + aiOffset[k];
            const float* pfUpper = pfLower + iPitch;
            AddWeighted<LANES>(a00, af00[k], pfLower);
            AddWeighted<LANES>(a01, af01[k], pfLower + LANES);
            AddWeighted<LANES>(a10, af10[k], pfUpper);
            AddWeighted<LANES>(a11, af11[k], pfUpper + LANES);
        }
    }
    Store<LANES>(pfSum, Add<LANES>(Add<LANES>(a00, a01), Add<LANES>(a10, a11)));
}

/// Detector columns whose rays can cross the tile, a little more for rounding.
DEVICE_FN Share ColumnsOfTile(const RayGeometry& rRays, const Tile& rTile, int iProjX)
{
    const float fMiddleX = (rTile.iX0 + rTile.iX1) * 0.5f - rRays.fCentreX;
    const float fMiddleZ = (rTile.iZ0 + rTile.iZ1) * 0.5f - rRays.fCentreZ;
    const float fHalfX = (rTile.iX1 - rTile.iX0) * 0.5f;
    const float fHalfZ = (rTile.iZ1 - rTile.iZ0) * 0.5f;
    const float fMiddle = rRays.fCentreU + fMiddleX * rRays.fCos + fMiddleZ * rRays.fSin;
    const float fHalf = fHalfX * (rRays.fCos < 0 ? -rRays.fCos : rRays.fCos) +
                        fHalfZ * (rRays.fSin < 0 ? -rRays.fSin : rRays.fSin) + 3.0f +
                        1e-6f * rRays.fCentreX + 1e-6f * rRays.fCentreZ;
    const float fLow = fMiddle - fHalf, fHigh = fMiddle + fHalf;
    const float fEnd = static_cast<float>(iProjX);
    Share aColumns;
    aColumns.iFirst = fLow > 0.0f ? static_cast<int>(fLow < fEnd ? fLow : fEnd) : 0;
    aColumns.iEnd = fHigh > 0.0f ? static_cast<int>(fHigh < fEnd ? fHigh : fEnd) : 0;
    return aColumns;
}

template <int LANES>
static void ForwardTile(const ForwardParams& rP, const Tile& rTile, const ForwardView& rView)
{
    const RayGeometry aRays = rView.aRays;
    const Share aColumns = ColumnsOfTile(aRays, rTile, rP.iProjX);
    const int iPitch = rP.aVol.iWidth * LANES;
    const float* pfTile =
        static_cast<const float*>(rP.aVol.pvData) +
        (static_cast<std::size_t>(rTile.iZ0) * rP.aVol.iWidth + rTile.iX0) * LANES;
    float afX[g_iRays], afZ[g_iRays];
    int aiFirstX[g_iRays], aiEndX[g_iRays], aiFirstZ[g_iRays], aiEndZ[g_iRays];
    for (int x = aColumns.iFirst; x < aColumns.iEnd; x += g_iRays)
    {
        for (int r = 0; r < g_iRays; ++r)
        {
            afX[r] = RayMiddleX(aRays, x + r);
            afZ[r] = RayMiddleZ(aRays, x + r);
        }
        FindSpan(afX, -aRays.fSin, aRays.fHalf, rTile.iX0, rTile.iX1, aRays.iSamples, aiFirstX,
                 aiEndX);
        FindSpan(afZ, aRays.fCos, aRays.fHalf, rTile.iZ0, rTile.iZ1, aRays.iSamples, aiFirstZ,
                 aiEndZ);
        const int iRays = aColumns.iEnd - x < g_iRays ? aColumns.iEnd - x : g_iRays;
        for (int r = 0; r < iRays; ++r)
        {
            const int iFirst = aiFirstX[r] > aiFirstZ[r] ? aiFirstX[r] : aiFirstZ[r];
            const int iEnd = aiEndX[r] < aiEndZ[r] ? aiEndX[r] : aiEndZ[r];
            if (iFirst < iEnd)
                AddRay<LANES>(aRays, afX[r], afZ[r], rTile, pfTile, iPitch, iFirst, iEnd,
                              rView.pfSums + static_cast<std::size_t>(x + r) * LANES);
        }
    }
}

template <int LANES>
static void ForwardLanes(const ForwardParams& rP, const ForwardView* pViews, Share aViews)
{
    for (int v = aViews.iFirst; v < aViews.iEnd; ++v)
        for (int x = 0; x < rP.iProjX; ++x)
            Store<LANES>(pViews[v].pfSums + static_cast<std::size_t>(x) * LANES, Fill<LANES>(0.0f));
    // Offsets within a tile are 32 bits wide: very wide slices get low tiles.
    constexpr int iTileX = 64;
    const int iFit = (1 << 30) / LANES / rP.aVol.iWidth - 1;
    const int iTileZ = iFit < 1 ? 1 : iFit < 64 ? iFit : 64;
    const int iBaseX = rP.iVolX + 1, iBaseZ = rP.iVolZ + 1;
    for (int z = 0; z < iBaseZ; z += iTileZ)
        for (int x = 0; x < iBaseX; x += iTileX)
        {
            const Tile aTile = {x, x + iTileX < iBaseX ? x + iTileX : iBaseX, z,
                                z + iTileZ < iBaseZ ? z + iTileZ : iBaseZ};
            for (int v = aViews.iFirst; v < aViews.iEnd; ++v)
                ForwardTile<LANES>(rP, aTile, pViews[v]);
        }
}
