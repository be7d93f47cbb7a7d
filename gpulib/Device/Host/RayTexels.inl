// What a ray reads of a strip of texel rows. Included inside the namespace of an instruction set.
//
// The rows of a strip lie across the steep axis of the view (Z up to 45 degrees, else X), so the
// samples of a ray, one texel apart, rise by 0.7 to 1 row. No more than three touch a row, and
// those lie so close to each other that they share texels: their bilinear weights are merged.
//
//     row + 1  --o-----o-----o-----o--      sample k, q(k) rows from the row, has the part
//                        ,2'                    w(k) = 1 - |q(k)|
//     row      --A-----B-,1'-C-----D--      of it, and lies u(k) texels from texel A: its share of
//                 ,0'                       texel j = A, B, C, D (0 to 3) is the tent
//     row - 1  --o-----o-----o-----o--          w(k) max(0, 1 - |u(k) - j|).
//
// A and B are always read, as a pair; C and D, which are mostly zero, go to a list.

constexpr int g_iStripRows = 32;

/// 0, 1, 2 and so on, a register of which numbers rows or rays.
struct Numbers
{
    alignas(64) float af[g_iStripRows];
};
constexpr Numbers MakeNumbers()
{
    Numbers aNumbers = {};
    for (int r = 0; r < g_iStripRows; ++r) aNumbers.af[r] = static_cast<float>(r);
    return aNumbers;
}
constexpr Numbers g_aNumbers = MakeNumbers();

/// A view as the strips see it: P runs across the rows, S along them. Samples are counted so that
/// S never falls; t is counted from the middle of the ray.
struct Course
{
    bool bAlongX;    ///< whether P is X
    float fStepP;    ///< from one sample to the next
    float fStepS;    ///< 0 to 0.71
    float fTurn;     ///< 1: P rises along the ray, -1: it falls
    float fInverse;  ///< 1 / |fStepP|
    float fHalf;     ///< samples have |t| <= fHalf
    bool bFour;      ///< whether texel D can be touched
};

DEVICE_FN Course MakeCourse(const RayGeometry& rRays)
{
    const float fX = -rRays.fSin, fZ = rRays.fCos;
    Course aCourse;
    aCourse.bAlongX = RunAlongX(rRays);
    const float fP = aCourse.bAlongX ? fX : fZ, fS = aCourse.bAlongX ? fZ : fX;
    aCourse.fStepP = fS < 0.0f ? -fP : fP;
    aCourse.fStepS = fS < 0.0f ? -fS : fS;
    aCourse.fTurn = aCourse.fStepP < 0.0f ? -1.0f : 1.0f;
    aCourse.fInverse = aCourse.fTurn / aCourse.fStepP;
    aCourse.fHalf = rRays.fHalf;
    aCourse.bFour = aCourse.fStepS > 0.49f;
    return aCourse;
}

/// Rows [iRow, iRow + iRows) of the slice, at most g_iStripRows, and some columns of them. Offsets
/// count from texel (iRow, iColumn), in units of g_iTexelUnit<LANES> values.
struct Strip
{
    int iRow, iRows;
    int iColumn;
    int iColumns;  ///< of the slice, without the frame: texels 1 .. iColumns
    int iStepS;    ///< to the next texel of a row
    alignas(64) float afRow[g_iStripRows];
    alignas(64) int aiRow[g_iStripRows];  ///< offset of column 0 of each row; may wrap around
    int iZero;                            ///< offset of a texel of the frame, as the one after it
};

/// Offsets of 32 bits reach every texel of the largest slice.
template <int LANES>
constexpr int g_iTexelUnit = LANES == 1 ? 1 : 2;

/// Texels and merged weights of one ray in one strip.
struct RayTexels
{
    alignas(64) int aiPair[g_iStripRows];  ///< texel A of each row
    alignas(64) float afA[g_iStripRows], afB[g_iStripRows];
    int iSingles;  ///< texels C and D, up to a whole number of fours
    alignas(64) int aiSingle[2 * g_iStripRows + g_iPackSlack];
    alignas(64) float afSingle[2 * g_iStripRows + g_iPackSlack];
};

/// Neighbouring rays of a view on their way through a strip.
constexpr int g_iRays = 16;
struct Rays
{
    alignas(64) float afP[g_iRays], afS[g_iRays];  ///< texel coordinates of their middles
    alignas(64) float afBefore[g_iRays];           ///< last sample before row 0 of the strip
    alignas(64) int aiWhole[g_iRays];  ///< whether all samples and texels on the way exist
};

/// Rays of detector columns iX and following.
DEVICE_FN void PlaceRays(const RayGeometry& rRays, const Course& rCourse, const Strip& rStrip,
                         int iX, Rays& rResult)
{
    const float fRow = static_cast<float>(rStrip.iRow);
    const float fTurn = rCourse.fTurn, fInverse = rCourse.fInverse, fHalf = rCourse.fHalf;
    const float fEnd = static_cast<float>(rStrip.iColumns - 2);
    // A sample too many has weight 0, one too few would be missed: a little less, for rounding.
    // There is room for one too many: three samples more than 0.7 rows apart span 2.1 of the 2
    // rows.
    const float fLess = 0.0078125f;
    // From the first sample that may touch the strip to the last.
    const float fPassage = (g_iStripRows + 1) * fInverse + 3.0f;
#pragma GCC unroll 4
    for (int r = 0; r < g_iRays; r += TALVEN_VECTOR)
    {
        const Wide vU = LoadWide(g_aNumbers.af + r) + (static_cast<float>(iX) - rRays.fCentreU);
        const Wide vX = rRays.fCentreX + vU * rRays.fCos, vZ = rRays.fCentreZ + vU * rRays.fSin;
        const Wide vP = rCourse.bAlongX ? vX : vZ, vS = rCourse.bAlongX ? vZ : vX;
        const Wide vEnter = (fTurn * (fRow - vP) - 1.0f) * fInverse;
        const Wide vFrom = fTurn < 0.0f ? vEnter - g_iStripRows * fInverse : vEnter;
        const Wide vTo = vFrom + fPassage;
        const WideInt vWhole = (vFrom > -fHalf) & (vTo < fHalf) &
                               (vS + rCourse.fStepS * vFrom > 1.0f) &
                               (vS + rCourse.fStepS * vTo < fEnd);
        StoreWide(rResult.afP + r, vP);
        StoreWide(rResult.afS + r, vS);
        StoreWide(rResult.afBefore + r, vEnter + (fHalf - fLess));
        StoreWide(rResult.aiWhole + r, rStrip.iRows == g_iStripRows ? vWhole : WideInt{});
    }
}

/// Places ray i on the rows of a strip, one row per lane of a register. WHOLE: all samples and
/// texels exist; without it what does not has weight 0 on a texel of the frame. FOUR: see Course.
template <bool WHOLE, bool FOUR>
static void PlaceRay(const Course& rCourse, const Strip& rStrip, const Rays& rRays, int i,
                     RayTexels& rTexels)
{
    alignas(64) int aiC[g_iStripRows], aiD[g_iStripRows];
    alignas(64) float afC[g_iStripRows], afD[g_iStripRows];
    const Wide vZero = {}, vOne = Splat(1.0f);
    const Wide vStepP = Splat(rCourse.fStepP), vStepS = Splat(rCourse.fStepS);
    const Wide vMiddleP = Splat(rRays.afP[i]), vMiddleS = Splat(rRays.afS[i]);
    const Wide vBefore = Splat(rRays.afBefore[i]);
    const Wide vRate = Splat(rCourse.fTurn * rCourse.fInverse);
    const Wide vAfter = Splat(1.0f - rCourse.fHalf), vHalf = Splat(rCourse.fHalf);
#pragma GCC unroll 8
    for (int r = 0; r < g_iStripRows; r += TALVEN_VECTOR)
    {
        const Wide vR = LoadWide(g_aNumbers.af + r);
        const Wide vRow = LoadWide(rStrip.afRow + r);
        const Wide vSample = Fma(vR, vRate, vBefore);
        const Wide vT0 = ToFloat(WHOLE ? Truncate(vSample) : RoundDown(vSample)) + vAfter;
        const Wide vT1 = vT0 + vOne, vT2 = vT0 + 2.0f;
        Wide vW0 = Max(vZero, vOne - Abs((vMiddleP + vStepP * vT0) - vRow));
        Wide vW1 = Max(vZero, vOne - Abs((vMiddleP + vStepP * vT1) - vRow));
        Wide vW2 = Max(vZero, vOne - Abs((vMiddleP + vStepP * vT2) - vRow));
        if constexpr (!WHOLE)
        {
            vW0 = Abs(vT0) <= vHalf ? vW0 : vZero;
            vW1 = Abs(vT1) <= vHalf ? vW1 : vZero;
            vW2 = Abs(vT2) <= vHalf ? vW2 : vZero;
        }
        const Wide vS0 = vMiddleS + vStepS * vT0;
        const WideInt vA = WHOLE ? Truncate(vS0) : RoundDown(vS0);
        const Wide vFirst = ToFloat(vA);
        const Wide vU0 = vS0 - vFirst;
        const Wide vU1 = (vMiddleS + vStepS * vT1) - vFirst;
        const Wide vU2 = (vMiddleS + vStepS * vT2) - vFirst;
        // Each sample on its texels. What it does not touch gets nothing at all: a sum of ramps
        // would leave a rounding error there, and EM divides by the sums.
        const Wide vD1 = vU1 - vOne, vD2 = vU2 - vOne;
        const Wide vRight1 = Max(vZero, vD1), vLeft1 = vRight1 - vD1;  // of texel B
        const Wide vRight2 = Max(vZero, vD2), vLeft2 = vRight2 - vD2;
        const Wide vTentB1 = vOne - Abs(vD1);
        const Wide vTentB2 = FOUR ? Max(vZero, vOne - Abs(vD2)) : vOne - Abs(vD2);
        const Wide vTentC2 = FOUR ? Max(vZero, vOne - Abs(vD2 - vOne)) : vRight2;
        Wide vWeightA = Fma(vW0, vOne - vU0, Fma(vW1, vLeft1, vW2 * vLeft2));
        Wide vWeightB = Fma(vW0, vU0, Fma(vW1, vTentB1, vW2 * vTentB2));
        Wide vWeightC = Fma(vW1, vRight1, vW2 * vTentC2);
        Wide vWeightD = FOUR ? vW2 * Max(vZero, vD2 - vOne) : vZero;
        const WideUnsigned vStep = WideUnsigned{} + static_cast<unsigned>(rStrip.iStepS);
        const WideUnsigned vOffset =
            (WideUnsigned)LoadWide(rStrip.aiRow + r) + (WideUnsigned)vA * vStep;
        WideInt vPair = (WideInt)vOffset;
        if constexpr (!WHOLE)
        {
            const int iLast = rStrip.iColumns;
            const WideInt vThere =
                (vR < static_cast<float>(rStrip.iRows)) & (vW0 + vW1 + vW2 > vZero);
            const WideInt vPairThere = vThere & (vA >= 0) & (vA <= iLast);
            vWeightA = vPairThere ? vWeightA : vZero;
            vWeightB = vPairThere ? vWeightB : vZero;
            vWeightC = (vThere & (vA >= -1) & (vA <= iLast - 2)) ? vWeightC : vZero;
            vWeightD = (vThere & (vA >= -2) & (vA <= iLast - 3)) ? vWeightD : vZero;
            vPair = vPairThere ? vPair : WideInt{} + rStrip.iZero;
        }
        StoreWide(rTexels.aiPair + r, vPair);
        StoreWide(rTexels.afA + r, vWeightA);
        StoreWide(rTexels.afB + r, vWeightB);
        StoreWide(aiC + r, (WideInt)(vOffset + 2 * vStep));
        StoreWide(afC + r, vWeightC);
        if constexpr (FOUR)
        {
            StoreWide(aiD + r, (WideInt)(vOffset + 3 * vStep));
            StoreWide(afD + r, vWeightD);
        }
    }
    int iSingles = PackPositive(g_iStripRows, aiC, afC, rTexels.aiSingle, rTexels.afSingle);
    if constexpr (FOUR)
        iSingles += PackPositive(g_iStripRows, aiD, afD, rTexels.aiSingle + iSingles,
                                 rTexels.afSingle + iSingles);
    for (int j = iSingles; j < iSingles + 4; ++j)
    {
        rTexels.aiSingle[j] = rStrip.iZero;
        rTexels.afSingle[j] = 0.0f;
    }
    rTexels.iSingles = (iSingles + 3) & ~3;
}

/// The same with the right choices.
DEVICE_FN void Place(const Course& rCourse, const Strip& rStrip, const Rays& rRays, int i,
                     RayTexels& rTexels)
{
    if (rCourse.bFour)
        rRays.aiWhole[i] ? PlaceRay<true, true>(rCourse, rStrip, rRays, i, rTexels)
                         : PlaceRay<false, true>(rCourse, rStrip, rRays, i, rTexels);
    else
        rRays.aiWhole[i] ? PlaceRay<true, false>(rCourse, rStrip, rRays, i, rTexels)
                         : PlaceRay<false, false>(rCourse, rStrip, rRays, i, rTexels);
}
