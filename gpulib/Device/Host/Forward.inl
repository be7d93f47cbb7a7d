// Forward projection. Included inside the namespace of an instruction set.
//
// The slice is cut into tiles that stay in the cache; every projection of the set passes over a
// tile before the next one is taken. A sample belongs to the tile that holds the texel to its
// lower left, so each sample is counted once and samples that cannot touch the slice never.

constexpr int g_iRays = 16;  // neighbouring rays that are handled together
constexpr int g_iSteps = 8;  // samples of each whose weights are found together

/// Base texels [iX0, iX1) x [iZ0, iZ1); a sample also reads the next texel either way.
struct Tile
{
    int iX0, iX1, iZ0, iZ1;
    const float* pfTexels;  ///< texel (iX0, iZ0)
    int iPitch;             ///< values from one row of texels to the next
};

/// Whether sample i has reached fLimit: false, then true along a ray that rises or falls.
template <bool FALLS>
DEVICE_FN int HasReached(float fMiddle, float fSlope, float fHalf, float fLimit, int i)
{
    const float fSample = RaySample(fMiddle, fSlope, fHalf, i);
    return FALLS ? fSample < fLimit : fSample >= fLimit;
}

/// First sample of 0 .. iSamples that has reached fLimit, by bisection.
template <bool FALLS>
static int SearchLimit(float fMiddle, float fSlope, float fHalf, float fLimit, int iSamples)
{
    int iLow = 0, iHigh = iSamples;
    while (iLow < iHigh)
    {
        const int iMid = iLow + (iHigh - iLow) / 2;
        if (HasReached<FALLS>(fMiddle, fSlope, fHalf, fLimit, iMid))
            iHigh = iMid;
        else
            iLow = iMid + 1;
    }
    return iLow;
}

/// The same for neighbouring rays: an estimate, put right by the exact comparison around it.
template <bool FALLS>
DEVICE_FN void FindLimits(const float* pfMiddle, float fSlope, float fHalf, float fLimit,
                          int iSamples, int* piLimit)
{
    const float fInverse = 1.0f / fSlope;
    const float fLast = static_cast<float>(iSamples);
    int aiWrong[g_iRays];
    TALVEN_INDEPENDENT
    for (int r = 0; r < g_iRays; ++r)
    {
        const float fMiddle = pfMiddle[r];
        const float fGuess = fHalf + (fLimit - fMiddle) * fInverse - 1.0f;
        const float fPositive = fGuess > 0.0f ? fGuess : 0.0f;  // also for NaN
        const int iStart = static_cast<int>(fPositive < fLast ? fPositive : fLast);
        const int iBefore = HasReached<FALLS>(fMiddle, fSlope, fHalf, fLimit, iStart - 1);
        const int i0 = HasReached<FALLS>(fMiddle, fSlope, fHalf, fLimit, iStart);
        const int i1 = HasReached<FALLS>(fMiddle, fSlope, fHalf, fLimit, iStart + 1);
        const int i2 = HasReached<FALLS>(fMiddle, fSlope, fHalf, fLimit, iStart + 2);
        const int iLimit = iStart + 3 - i0 - i1 - i2;
        piLimit[r] = iLimit < iSamples ? iLimit : iSamples;
        aiWrong[r] = (iBefore & (iStart > 0)) | ((i2 == 0) & (iLimit < iSamples));
    }
    int iWrong = 0;
    for (int r = 0; r < g_iRays; ++r) iWrong |= aiWrong[r];
    if (!iWrong) return;
    for (int r = 0; r < g_iRays; ++r)
        piLimit[r] = SearchLimit<FALLS>(pfMiddle[r], fSlope, fHalf, fLimit, iSamples);
}

/// Consecutive samples of neighbouring rays, those that lie in one tile.
struct Spans
{
    alignas(64) int aiFirst[g_iRays];
    alignas(64) int aiCount[g_iRays];
};

/// Cuts the spans down to the samples whose coordinate lies in [fLow, fHigh).
DEVICE_FN void CutSpans(const float* pfMiddle, float fSlope, float fHalf, float fLow, float fHigh,
                        int iSamples, Spans& rSpans)
{
    int iOutside = 0;  // mostly nothing has to be cut
    for (int r = 0; r < g_iRays; ++r)
    {
        const int iLast = rSpans.aiFirst[r] + rSpans.aiCount[r] - 1;
        const float fFirst = RaySample(pfMiddle[r], fSlope, fHalf, rSpans.aiFirst[r]);
        const float fLast = RaySample(pfMiddle[r], fSlope, fHalf, iLast);
        iOutside |= !((fFirst >= fLow) & (fFirst < fHigh) & (fLast >= fLow) & (fLast < fHigh)) &
                    (rSpans.aiCount[r] > 0);
    }
    if (!iOutside) return;
    int aiFirst[g_iRays], aiEnd[g_iRays];
    if (fSlope < 0.0f)
    {
        FindLimits<true>(pfMiddle, fSlope, fHalf, fHigh, iSamples, aiFirst);
        FindLimits<true>(pfMiddle, fSlope, fHalf, fLow, iSamples, aiEnd);
    }
    else
    {
        FindLimits<false>(pfMiddle, fSlope, fHalf, fLow, iSamples, aiFirst);
        FindLimits<false>(pfMiddle, fSlope, fHalf, fHigh, iSamples, aiEnd);
    }
    for (int r = 0; r < g_iRays; ++r)
    {
        const int iOldEnd = rSpans.aiFirst[r] + rSpans.aiCount[r];
        const int iFirst = aiFirst[r] > rSpans.aiFirst[r] ? aiFirst[r] : rSpans.aiFirst[r];
        const int iEnd = aiEnd[r] < iOldEnd ? aiEnd[r] : iOldEnd;
        rSpans.aiFirst[r] = iFirst;
        rSpans.aiCount[r] = iEnd > iFirst ? iEnd - iFirst : 0;
    }
}

/// Where some samples of each ray lie: offset of the lower left texel from the first texel of the
/// tile, and the weights of the four texels.
struct SampleBlock
{
    alignas(64) int aiOffset[g_iSteps][g_iRays];
    alignas(64) float af00[g_iSteps][g_iRays], af01[g_iSteps][g_iRays];
    alignas(64) float af10[g_iSteps][g_iRays], af11[g_iSteps][g_iRays];
};

/// Places samples iStep and following of each span. WHOLE: all spans are long enough. Without it
/// a span that has ended repeats its last sample with weight 0, and an empty one reads any texel.
template <bool WHOLE, int LANES>
DEVICE_FN void PlaceSamples(const RayGeometry& rRays, const float* pfX, const float* pfZ,
                            const Spans& rSpans, int iStep, const Tile& rTile, SampleBlock& rBlock)
{
    const int iLastOffset =
        (rTile.iZ1 - rTile.iZ0 - 1) * rTile.iPitch + (rTile.iX1 - rTile.iX0 - 1) * LANES;
    for (int k = 0; k < g_iSteps; ++k)
    {
        TALVEN_INDEPENDENT
        for (int r = 0; r < g_iRays; ++r)
        {
            int iWanted = iStep + k;
            float fIn = 1.0f;
            if constexpr (!WHOLE)
            {
                const int iLast = rSpans.aiCount[r] - 1;
                fIn = static_cast<float>(iWanted <= iLast);
                iWanted = iWanted < iLast ? iWanted : iLast;
            }
            const int i = rSpans.aiFirst[r] + iWanted;
            const float fX = RaySample(pfX[r], -rRays.fSin, rRays.fHalf, i);
            const float fZ = RaySample(pfZ[r], rRays.fCos, rRays.fHalf, i);
            const int iX = static_cast<int>(fX);
            const int iZ = static_cast<int>(fZ);
            int iOffset = (iZ - rTile.iZ0) * rTile.iPitch + (iX - rTile.iX0) * LANES;
            float fRight = fX - static_cast<float>(iX);
            float fUp = fZ - static_cast<float>(iZ);
            if constexpr (!WHOLE)
            {
                iOffset = iOffset > 0 ? iOffset : 0;
                iOffset = iOffset < iLastOffset ? iOffset : iLastOffset;
                fRight *= fIn;
                fUp *= fIn;
            }
            const float f11 = fRight * fUp;
            const float f10 = fUp - f11;
            rBlock.aiOffset[k][r] = iOffset;
            rBlock.af11[k][r] = f11;
            rBlock.af10[k][r] = f10;
            rBlock.af01[k][r] = fRight - f11;
            rBlock.af00[k][r] = (fIn - fRight) - f10;
        }
    }
}

/// Adds a block of samples to the sums of its rays, [ray][lane].
template <int LANES>
DEVICE_FN void AddSamples(const SampleBlock& rBlock, int iSteps, const Tile& rTile, float* pfSums)
{
    constexpr int iTogether = (TALVEN_VECTOR == 16 ? 16 : 8) / Lanes<LANES>::iCount;
    for (int iRay = 0; iRay < g_iRays; iRay += iTogether)
    {
        Lanes<LANES> aSum[iTogether];
#pragma GCC unroll 16
        for (int j = 0; j < iTogether; ++j) aSum[j] = Load<LANES>(pfSums + (iRay + j) * LANES);
        for (int k = 0; k < iSteps; ++k)
        {
#pragma GCC unroll 16
            for (int j = 0; j < iTogether; ++j)
            {
                const int r = iRay + j;
                const float* pfLower = rTile.pfTexels + rBlock.aiOffset[k][r];
                const float* pfUpper = pfLower + rTile.iPitch;
                AddWeighted<LANES>(aSum[j], rBlock.af00[k][r], pfLower);
                AddWeighted<LANES>(aSum[j], rBlock.af01[k][r], pfLower + LANES);
                AddWeighted<LANES>(aSum[j], rBlock.af10[k][r], pfUpper);
                AddWeighted<LANES>(aSum[j], rBlock.af11[k][r], pfUpper + LANES);
            }
        }
#pragma GCC unroll 16
        for (int j = 0; j < iTogether; ++j) Store<LANES>(pfSums + (iRay + j) * LANES, aSum[j]);
    }
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
    alignas(64) float afX[g_iRays], afZ[g_iRays], afSums[g_iRays * LANES];
    Spans aSpans;
    SampleBlock aBlock;
    for (int x = aColumns.iFirst; x < aColumns.iEnd; x += g_iRays)
    {
        const int iRays = aColumns.iEnd - x < g_iRays ? aColumns.iEnd - x : g_iRays;
        for (int r = 0; r < g_iRays; ++r)
        {
            afX[r] = RayMiddleX(aRays, x + r);
            afZ[r] = RayMiddleZ(aRays, x + r);
            aSpans.aiFirst[r] = 0;
            aSpans.aiCount[r] = r < iRays ? aRays.iSamples : 0;
        }
        CutSpans(afZ, aRays.fCos, aRays.fHalf, rTile.iZ0, rTile.iZ1, aRays.iSamples, aSpans);
        CutSpans(afX, -aRays.fSin, aRays.fHalf, rTile.iX0, rTile.iX1, aRays.iSamples, aSpans);
        int iMost = 0, iLeast = aRays.iSamples;
        for (int r = 0; r < g_iRays; ++r)
        {
            iMost = aSpans.aiCount[r] > iMost ? aSpans.aiCount[r] : iMost;
            iLeast = aSpans.aiCount[r] < iLeast ? aSpans.aiCount[r] : iLeast;
        }
        if (iMost == 0) continue;

        for (int i = 0; i < g_iRays * LANES; ++i) afSums[i] = 0.0f;
        for (int iStep = 0; iStep < iMost; iStep += g_iSteps)
        {
            if (iStep + g_iSteps <= iLeast)
                PlaceSamples<true, LANES>(aRays, afX, afZ, aSpans, iStep, rTile, aBlock);
            else
                PlaceSamples<false, LANES>(aRays, afX, afZ, aSpans, iStep, rTile, aBlock);
            const int iSteps = iMost - iStep < g_iSteps ? iMost - iStep : g_iSteps;
            AddSamples<LANES>(aBlock, iSteps, rTile, afSums);
        }
        float* pfSums = rView.pfSums + static_cast<std::size_t>(x) * LANES;
        for (int r = 0; r < iRays; ++r)
            if (aSpans.aiCount[r] > 0)
                Store<LANES>(pfSums + r * LANES, Add<LANES>(Load<LANES>(pfSums + r * LANES),
                                                            Load<LANES>(afSums + r * LANES)));
    }
}

/// Points a tile at the slice or, when it will be read often, at a copy: rows of a slice lie whole
/// powers of two apart and would fight for the same few lines of the cache.
template <int LANES>
static void LocateTile(const DeviceImage& rVol, bool bCopy, float* pfScratch, Tile& rTile)
{
    const std::size_t tPitch = static_cast<std::size_t>(rVol.iWidth) * LANES;
    const float* pfFirst =
        static_cast<const float*>(rVol.pvData) + rTile.iZ0 * tPitch + rTile.iX0 * LANES;
    rTile.pfTexels = pfFirst;
    rTile.iPitch = static_cast<int>(tPitch);
    constexpr std::size_t tWidest = 1 << 24;  // offsets in a tile have 32 bits
    if (!bCopy && tPitch < tWidest) return;
    rTile.pfTexels = pfScratch;
    rTile.iPitch = (rTile.iX1 - rTile.iX0 + 1) * LANES;
    for (int z = 0; z <= rTile.iZ1 - rTile.iZ0; ++z)
        __builtin_memcpy(pfScratch + z * rTile.iPitch, pfFirst + z * tPitch,
                         rTile.iPitch * sizeof(float));
}

template <int LANES>
static void ForwardLanes(const ForwardParams& rP, const ForwardView* pViews, Share aViews,
                         float* pfScratch)
{
    for (int v = aViews.iFirst; v < aViews.iEnd; ++v)
        for (int x = 0; x < rP.iProjX; ++x)
            Store<LANES>(pViews[v].pfSums + static_cast<std::size_t>(x) * LANES, Fill<LANES>(0.0f));
    constexpr int iWorthACopy = 4;  // views
    const bool bCopy = aViews.iEnd - aViews.iFirst >= iWorthACopy;
    const int iBaseX = rP.iVolX + 1, iBaseZ = rP.iVolZ + 1;
    for (int z = 0; z < iBaseZ; z += g_iTileZ)
        for (int x = 0; x < iBaseX; x += g_iTileX)
        {
            Tile aTile = {x,       x + g_iTileX < iBaseX ? x + g_iTileX : iBaseX,
                          z,       z + g_iTileZ < iBaseZ ? z + g_iTileZ : iBaseZ,
                          nullptr, 0};
            LocateTile<LANES>(rP.aVol, bCopy, pfScratch, aTile);
            for (int v = aViews.iFirst; v < aViews.iEnd; ++v)
                ForwardTile<LANES>(rP, aTile, pViews[v]);
        }
}
