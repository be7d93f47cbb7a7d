// Forward projection. Included inside the namespace of an instruction set.
//
// The slice is cut into strips of 32 rows of texels, and a strip into windows; all views of the set
// pass over a window, which stays in the second-level cache, before the next one is taken. A ray
// crosses a strip whole, whatever the windows are: it belongs to the one that it meets in the
// middle of the strip. So the sum of a ray is made strip by strip, in the same order for any set.
//
//      strip   |  .  window |     .      |            /  a ray of the right window,
//      of 32   |   .        |      .     |           /   all of its samples
//      rows    |    .       |       .    |          /

constexpr int g_iWindow = 64;  // columns
/// Columns by which a ray may leave its window: half a strip at 45 degrees, and the footprint.
constexpr int g_iOverhang = g_iStripRows / 2 + 4;

/// Adds four weighted texels, each to a sum of its own.
template <int LANES>
DEVICE_FN void AddFour(const float* pfWeights, const float* const* ppfTexels, std::ptrdiff_t tNext,
                       Lanes<LANES> (&raSums)[4])
{
    using L = Lanes<LANES>;
    typename L::Vector avWeight[4];
    BroadcastEach(pfWeights, avWeight);
#pragma GCC unroll 4
    for (int j = 0; j < 4; ++j)
#pragma GCC unroll 4
        for (int k = 0; k < L::iCount; ++k)
        {
            typename L::Vector vTexel;
            __builtin_memcpy(&vTexel, ppfTexels[j] + tNext + k * L::iWidth, sizeof(vTexel));
            raSums[j].av[k] = Fma(avWeight[j], vTexel, raSums[j].av[k]);
        }
}

/// Adds what a ray reads of a strip to its sums. Four sums do not wait for each other.
/// \param pfTexels  texel (iRow, iColumn) of the strip
template <int LANES, bool ALONG_X>
DEVICE_FN void AddRay(const RayTexels& rTexels, const Strip& rStrip, const float* pfTexels,
                      float* pfSums)
{
    constexpr std::ptrdiff_t tUnit = g_iTexelUnit<LANES>;
    constexpr int iPart = LANES < 2 * TALVEN_VECTOR ? LANES : 2 * TALVEN_VECTOR;  // has registers
    const std::ptrdiff_t tNext = ALONG_X ? rStrip.iStepS * tUnit : LANES;
    for (int l = 0; l < LANES; l += iPart)
    {
        Lanes<iPart> aSums[4] = {Load<iPart>(pfSums + l), Fill<iPart>(0.0f), Fill<iPart>(0.0f),
                                 Fill<iPart>(0.0f)};
        const float* pfPart = pfTexels + l;
        for (int r = 0; r < rStrip.iRows; r += 4)
        {
            const float* apfPair[4];
#pragma GCC unroll 4
            for (int j = 0; j < 4; ++j) apfPair[j] = pfPart + rTexels.aiPair[r + j] * tUnit;
            AddFour<iPart>(rTexels.afA + r, apfPair, 0, aSums);
            AddFour<iPart>(rTexels.afB + r, apfPair, tNext, aSums);
        }
        for (int i = 0; i < rTexels.iSingles; i += 4)
        {
            const float* apfSingle[4];
#pragma GCC unroll 4
            for (int j = 0; j < 4; ++j) apfSingle[j] = pfPart + rTexels.aiSingle[i + j] * tUnit;
            AddFour<iPart>(rTexels.afSingle + i, apfSingle, 0, aSums);
        }
        Store<iPart>(pfSums + l,
                     Add<iPart>(Add<iPart>(aSums[0], aSums[1]), Add<iPart>(aSums[2], aSums[3])));
    }
}

/// First detector column whose ray meets row fP at or beyond column fS, or at or before it where
/// columns run the other way.
DEVICE_FN int FirstColumn(const RayGeometry& rRays, bool bAlongX, float fP, float fS, int iProjX)
{
    const float fX = bAlongX ? fP : fS, fZ = bAlongX ? fS : fP;
    const float fU = DetectorCoordinate(rRays.fCentreU, fX - rRays.fCentreX, fZ - rRays.fCentreZ,
                                        rRays.fCos, rRays.fSin);
    if (!(fU > 0.0f)) return 0;
    if (fU >= static_cast<float>(iProjX)) return iProjX;
    const int iColumn = static_cast<int>(fU);
    return iColumn + (static_cast<float>(iColumn) < fU);
}

/// A piece of a strip. Those rays belong to it that meet the middle of the strip in its columns.
struct Window
{
    Share aColumns;
    Strip aStrip;
    const float* pfTexels;
};

/// Sends the rays of a view through a window.
template <int LANES, bool ALONG_X>
static void CrossWindow(const ForwardParams& rP, const Window& rWindow, const ForwardView& rView,
                        const Course& rCourse)
{
    const RayGeometry& rRays = rView.aRays;
    const Strip& rStrip = rWindow.aStrip;
    const float fMiddle = static_cast<float>(rStrip.iRow) + (g_iStripRows - 1) * 0.5f;
    // Farther out no ray can touch the strip.
    const float fReach = rCourse.fStepS * rCourse.fInverse * (g_iStripRows + 1) * 0.5f + 1.5f;
    const float fLow = 1.0f - fReach, fHigh = static_cast<float>(rStrip.iColumns) + fReach;
    const float fFirst = static_cast<float>(rWindow.aColumns.iFirst);
    const float fEnd = static_cast<float>(rWindow.aColumns.iEnd);
    if (fFirst >= fHigh || fEnd <= fLow) return;
    const int iA =
        FirstColumn(rRays, rCourse.bAlongX, fMiddle, fFirst > fLow ? fFirst : fLow, rP.iProjX);
    const int iB =
        FirstColumn(rRays, rCourse.bAlongX, fMiddle, fEnd < fHigh ? fEnd : fHigh, rP.iProjX);
    const int iFirst = iA < iB ? iA : iB, iEnd = iA < iB ? iB : iA;
    Rays aRays;
    RayTexels aTexels;
    for (int x = iFirst; x < iEnd; ++x)
    {
        const int i = (x - iFirst) % g_iRays;
        if (i == 0) PlaceRays(rRays, rCourse, rStrip, x, aRays);
        Place(rCourse, rStrip, aRays, i, aTexels);
        AddRay<LANES, ALONG_X>(aTexels, rStrip, rWindow.pfTexels,
                               rView.pfSums + static_cast<std::size_t>(x) * LANES);
    }
}

/// The part of a strip that the rays of a window may touch.
/// \param iRow, iFirst  first row and column; columns before the slice belong to rays from outside
template <int LANES>
static Window MakeWindow(const ForwardParams& rP, bool bAlongX, int iRow, int iFirst)
{
    const int iRows = bAlongX ? rP.iVolX : rP.iVolZ, iColumns = bAlongX ? rP.iVolZ : rP.iVolX;
    const int iEnd = iFirst + g_iWindow;
    const std::size_t tRow = rP.aVol.tPitch / sizeof(float);
    const std::size_t tP = bAlongX ? LANES : tRow, tS = bAlongX ? tRow : LANES;
    const int iLow = iFirst - g_iOverhang > 0 ? iFirst - g_iOverhang : 0;
    const int iHigh = iEnd + g_iOverhang < iColumns + 1 ? iEnd + g_iOverhang : iColumns + 1;
    Window aWindow;
    aWindow.aColumns = {iFirst, iEnd};
    Strip& rStrip = aWindow.aStrip;
    rStrip.iRow = iRow;
    rStrip.iRows = iRows + 1 - iRow < g_iStripRows ? iRows + 1 - iRow : g_iStripRows;
    rStrip.iColumn = iLow + (iHigh - iLow) / 2;
    rStrip.iColumns = iColumns;
    const unsigned uStepP = static_cast<unsigned>(tP / g_iTexelUnit<LANES>);
    const unsigned uStepS = static_cast<unsigned>(tS / g_iTexelUnit<LANES>);
    rStrip.iStepS = static_cast<int>(uStepS);
    for (int r = 0; r < g_iStripRows; ++r)
    {
        rStrip.afRow[r] = static_cast<float>(iRow + r);
        rStrip.aiRow[r] = static_cast<int>(r * uStepP - rStrip.iColumn * uStepS);
    }
    const int iFrame = iRow > iRows / 2 ? iRows + 1 : 0;
    rStrip.iZero = (iFrame - iRow) * static_cast<int>(uStepP);
    aWindow.pfTexels = static_cast<const float*>(rP.aVol.pvData) + iRow * tP + rStrip.iColumn * tS;
    return aWindow;
}

/// Sends those views of a share whose steep axis this is through the strip from row iRow on.
/// \param fPrepare  called before a window with the end of the columns that its rays may touch
template <int LANES, bool ALONG_X, class F>
DEVICE_FN void CrossStrip(const ForwardParams& rP, const ForwardView* pViews, Share aViews,
                          int iRow, F fPrepare)
{
    const int iColumns = ALONG_X ? rP.iVolZ : rP.iVolX;
    for (int iFirst = 1 - g_iOverhang; iFirst < iColumns + g_iOverhang; iFirst += g_iWindow)
    {
        fPrepare(iFirst + g_iWindow + g_iOverhang);
        const Window aWindow = MakeWindow<LANES>(rP, ALONG_X, iRow, iFirst);
        for (int v = aViews.iFirst; v < aViews.iEnd; ++v)
        {
            const Course aCourse = MakeCourse(pViews[v].aRays);
            if (aCourse.bAlongX == ALONG_X && pViews[v].aRays.iSamples > 0)
                CrossWindow<LANES, ALONG_X>(rP, aWindow, pViews[v], aCourse);
        }
    }
}

/// The same with all strips.
template <int LANES, bool ALONG_X>
static void CrossSlice(const ForwardParams& rP, const ForwardView* pViews, Share aViews)
{
    const int iRows = ALONG_X ? rP.iVolX : rP.iVolZ;
    for (int iRow = 1; iRow <= iRows; iRow += g_iStripRows)
        CrossStrip<LANES, ALONG_X>(rP, pViews, aViews, iRow, [](int) {});
}

template <int LANES>
static void ClearSums(const ForwardParams& rP, const ForwardView* pViews, Share aViews)
{
    for (int v = aViews.iFirst; v < aViews.iEnd; ++v)
        for (int x = 0; x < rP.iProjX; ++x)
            Store<LANES>(pViews[v].pfSums + static_cast<std::size_t>(x) * LANES, Fill<LANES>(0.0f));
}

template <int LANES>
static void ForwardLanes(const ForwardParams& rP, const ForwardView* pViews, Share aViews)
{
    ClearSums<LANES>(rP, pViews, aViews);
    CrossSlice<LANES, false>(rP, pViews, aViews);
    CrossSlice<LANES, true>(rP, pViews, aViews);
}
