// Back projection. Included inside the namespace of an instruction set.
//
// The slice is cut into tiles of 16 x 32 voxels, the views of the set into groups. A group passes
// over a whole tile before the next one is taken: its pixels under the tile stay in the first-level
// cache, while the sums of the tile are parked in the second.
//
//              views 0..7     8..15    16..23       a voxel takes its views in the order of
//             +---------+  +--------+  +------      the set, whatever the tiles are
//      tile   |  zeros  |  | parked |  | parked
//     16 x 32 |  + sum  |->| + sum  |->| + sum      the last group updates the slice
//             +---------+  +--------+  +------
//
// A row of a tile is placed on the detector rows of the group at once, a register for each value.
// Then one block after the other, as many voxels as have their sums in registers, takes all the
// views.

/// Voxels of a run that have registers for their sums.
template <int LANES>
struct Block
{
    static constexpr int iVoxels = (TALVEN_VECTOR == 16 ? 16 : 8) / Lanes<LANES>::iCount;
    static constexpr int iPerRun = g_iBackRun / iVoxels;
    Lanes<LANES> aSum[iVoxels];
};

/// What a block keeps between two groups: sums, and the projections that reached each voxel: those
/// that reached all voxels in all lanes, and the others.
template <int LANES>
struct ParkedBlock
{
    alignas(64) float afSums[Block<LANES>::iVoxels * LANES];
    alignas(64) float afMixedHits[Block<LANES>::iVoxels * LANES];
    int iHits;
    bool bMixed;  ///< whether there are any of the others; afMixedHits holds nothing before
};

/// 130 KiB for 32 lanes.
template <int LANES>
using ParkedTile = ParkedBlock<LANES>[g_iBackTile][Block<LANES>::iPerRun];

/// Views that pass over a tile together.
constexpr int g_iGroup = 8;

template <int LANES>
DEVICE_FN void Park(const Block<LANES>& rBlock, float* pfSums)
{
#pragma GCC unroll 16
    for (int j = 0; j < Block<LANES>::iVoxels; ++j)
        Store<LANES>(pfSums + j * LANES, rBlock.aSum[j]);
}

template <int LANES>
DEVICE_FN void Unpark(const float* pfSums, Block<LANES>& rBlock)
{
#pragma GCC unroll 16
    for (int j = 0; j < Block<LANES>::iVoxels; ++j)
        rBlock.aSum[j] = Load<LANES>(pfSums + j * LANES);
}

/// Adds a view that all voxels see in all lanes. Four left weights come by one load and shuffles,
/// each right one by a load of its own: ports for loads and for arithmetic are then about equally
/// busy.
template <int LANES>
DEVICE_FN void AddSeen(const float* pfRow, const int* piOffset, const float* pfLeft,
                       const float* pfRight, int iStep, Block<LANES>& rBlock)
{
    constexpr int iVoxels = Block<LANES>::iVoxels, iTogether = iVoxels < 4 ? iVoxels : 4;
    const float* pfNext = pfRow + iStep;
#pragma GCC unroll 16
    for (int j = 0; j < iVoxels; j += iTogether)
    {
        typename Lanes<LANES>::Vector avLeft[iTogether];
        BroadcastEach(pfLeft + j, avLeft);
#pragma GCC unroll 4
        for (int i = 0; i < iTogether; ++i)
        {
            AddTimes<LANES>(rBlock.aSum[j + i], avLeft[i], pfRow + piOffset[j + i]);
            AddWeighted<LANES>(rBlock.aSum[j + i], pfRight[j + i], pfNext + piOffset[j + i]);
        }
    }
}

/// Adds a view that only some voxels or lanes see. iFirst: first voxel of the block in its run.
template <EUpdate UPDATE, int LANES>
static void AddMixed(const RunPlaces& rPlaces, int iFirst, int iStep, ParkedBlock<LANES>& rParked)
{
    using L = Lanes<LANES>;
    using V = typename L::Vector;
    constexpr int iVoxels = Block<LANES>::iVoxels;
    if (!rParked.bMixed)
    {
        rParked.bMixed = true;
        for (int j = 0; j < iVoxels * LANES; ++j) rParked.afMixedHits[j] = 0.0f;
    }
    const BackView& rView = *rPlaces.pView;
    const L aFirst = Load<LANES>(rView.afFirst), aEnd = Load<LANES>(rView.afEnd);
    for (int j = 0; j < iVoxels; ++j)
    {
        const int x = iFirst + j;
        const float* pfLeft = rView.pfRow + rPlaces.aiOffset[x];
        L aOld = Load<LANES>(rParked.afSums + j * LANES), aNew = aOld;
        AddWeighted<LANES>(aNew, rPlaces.afLeft[x], pfLeft);
        AddWeighted<LANES>(aNew, rPlaces.afRight[x], pfLeft + iStep);
        L aHits = Load<LANES>(rParked.afMixedHits + j * LANES);
        const L aU = Fill<LANES>(rPlaces.afU[x]);
        for (int k = 0; k < L::iCount; ++k)
        {
            const auto vSkip = Skips<UPDATE, V>(aU.av[k], aFirst.av[k], aEnd.av[k]);
            aNew.av[k] = vSkip ? aOld.av[k] : aNew.av[k];
            aHits.av[k] = vSkip ? aHits.av[k] : aHits.av[k] + 1.0f;
        }
        Store<LANES>(rParked.afSums + j * LANES, aNew);
        Store<LANES>(rParked.afMixedHits + j * LANES, aHits);
    }
}

/// Adds the views of a group to one block of their run. iFirst: first voxel of the block.
template <EUpdate UPDATE, int LANES>
DEVICE_FN void AddGroup(const RunPlaces* pPlaces, int iPlaces, int iFirst, int iStep,
                        ParkedBlock<LANES>& rParked, Block<LANES>& rBlock)
{
    constexpr int iVoxels = Block<LANES>::iVoxels;
    constexpr unsigned uAll = (1u << iVoxels) - 1;
    int iHits = 0;
    for (int v = 0; v < iPlaces; ++v)
    {
        const RunPlaces& rPlaces = pPlaces[v];
        if (rPlaces.uMissed >> iFirst & uAll)
        {
            if ((rPlaces.uUnseen >> iFirst & uAll) == uAll) continue;
            Park(rBlock, rParked.afSums);
            AddMixed<UPDATE, LANES>(rPlaces, iFirst, iStep, rParked);
            Unpark(rParked.afSums, rBlock);
            continue;
        }
        ++iHits;
        AddSeen<LANES>(rPlaces.pView->pfRow, rPlaces.aiOffset + iFirst, rPlaces.afLeft + iFirst,
                       rPlaces.afRight + iFirst, iStep, rBlock);
    }
    rParked.iHits += iHits;
}

/// Writes the new values of the first iCount voxels of a block.
/// \param pfVoxel  the first of them
template <EUpdate UPDATE, int LANES>
DEVICE_FN void UpdateBlock(const Block<LANES>& rBlock, const ParkedBlock<LANES>& rParked,
                           float fRelax, int iViews, int iCount, float* pfVoxel)
{
    using L = Lanes<LANES>;
    using V = typename L::Vector;
    const float fHits = static_cast<float>(rParked.iHits);
    const float fFactor =
        UPDATE == EUpdate::eSart ? SartFactor(fHits, fRelax) : fRelax / static_cast<float>(iViews);
#pragma GCC unroll 16
    for (int j = 0; j < Block<LANES>::iVoxels; ++j, pfVoxel += LANES)
    {
        if (j >= iCount) break;
        L aValue = Load<LANES>(pfVoxel);
        L aHits = Fill<LANES>(fHits), aFactor = Fill<LANES>(fFactor);
        if (rParked.bMixed)
        {
            aHits = Add<LANES>(aHits, Load<LANES>(rParked.afMixedHits + j * LANES));
            for (int k = 0; UPDATE == EUpdate::eSart && k < L::iCount; ++k)
                aFactor.av[k] = SartFactor<V>(aHits.av[k], fRelax);
        }
        for (int k = 0; k < L::iCount; ++k)
            if constexpr (UPDATE == EUpdate::eSart)
                aValue.av[k] = SartUpdate<V>(aValue.av[k], rBlock.aSum[j].av[k], aFactor.av[k]);
            else
                aValue.av[k] =
                    EmUpdate<V>(aValue.av[k], rBlock.aSum[j].av[k], aHits.av[k], fFactor);
        Store<LANES>(pfVoxel, aValue);
    }
}

/// One pass of a group over a tile.
struct TilePass
{
    int iX;              ///< first voxel of its rows
    bool bFirst, bLast;  ///< of the groups
    int iViews;          ///< of the whole set
    float fCentreU;
    RunPlaces aPlaces[g_iGroup];
    int iPlaces;  ///< views of the group that may see some of the tile
};

/// Asks for the voxels that the last group will update, so that they are near by then.
template <int LANES>
DEVICE_FN void FetchRun(const float* pfVoxels)
{
    constexpr int iLine = 16;  // values of a line of the cache
    for (int i = 0; i < g_iBackRun * LANES; i += iLine) __builtin_prefetch(pfVoxels + i, 1, 2);
}

/// Sends a group over row iZ of its tile.
template <EUpdate UPDATE, int LANES>
DEVICE_FN void PassRun(const BackParams& rP, TilePass& rPass, const float* pfX, int iZ,
                       ParkedBlock<LANES>* pParked)
{
    using B = Block<LANES>;
    PlaceOnAll<UPDATE, LANES>(pfX, iZ - (rP.iVolZ - 1) * 0.5f, rPass.fCentreU, rP.iProjX,
                              rPass.aPlaces, rPass.iPlaces);
    const int iStep = rP.iProjX > 1 ? LANES : 0;
    const int iCountX = rP.iVolX - rPass.iX < g_iBackRun ? rP.iVolX - rPass.iX : g_iBackRun;
    const std::size_t tPitch = rP.aVol.tPitch / sizeof(float);
    float* pfRun = RowOf(rP.aVol, iZ + 1) + static_cast<std::size_t>(rPass.iX + 1) * LANES;
    if (rPass.bFirst) FetchRun<LANES>(rPass.bLast ? pfRun + 4 * tPitch : pfRun);
    for (int x = 0; x < iCountX; x += B::iVoxels, ++pParked)
    {
        B aBlock;
        if (rPass.bFirst)
        {
            pParked->iHits = 0;
            pParked->bMixed = false;
#pragma GCC unroll 16
            for (int j = 0; j < B::iVoxels; ++j) aBlock.aSum[j] = Fill<LANES>(0.0f);
        }
        else
            Unpark(pParked->afSums, aBlock);
        AddGroup<UPDATE, LANES>(rPass.aPlaces, rPass.iPlaces, x, iStep, *pParked, aBlock);
        if (rPass.bLast)
            UpdateBlock<UPDATE, LANES>(aBlock, *pParked, rP.fRelax, rPass.iViews, iCountX - x,
                                       pfRun + x * LANES);
        else
            Park(aBlock, pParked->afSums);
    }
}

/// Sends all views over the tile whose first voxel is (iX, iZ).
template <EUpdate UPDATE, int LANES>
static void BackTile(const BackParams& rP, const BackView* pViews, int iViews, int iX, int iZ,
                     ParkedTile<LANES>& rParked)
{
    TilePass aPass;
    aPass.iX = iX;
    aPass.iViews = iViews;
    aPass.fCentreU = (rP.iProjX - 1) * 0.5f;
    alignas(64) float afX[g_iBackRun];
    for (int j = 0; j < g_iBackRun; ++j) afX[j] = iX + j - (rP.iVolX - 1) * 0.5f;
    const float fMiddleX = afX[0] + (g_iBackRun - 1) * 0.5f;
    const float fMiddleZ = iZ + (g_iBackTile - 1) * 0.5f - (rP.iVolZ - 1) * 0.5f;
    const int iEndZ = rP.iVolZ - iZ < g_iBackTile ? rP.iVolZ : iZ + g_iBackTile;
    int iFirst = 0;
    do  // once for a set without views, too
    {
        const int iGroup = iViews - iFirst < g_iGroup ? iViews - iFirst : g_iGroup;
        aPass.bFirst = iFirst == 0;
        aPass.bLast = iFirst + iGroup == iViews;
        aPass.iPlaces =
            ChooseViews(pViews + iFirst, iGroup, fMiddleX, fMiddleZ, aPass.fCentreU, aPass.aPlaces);
        for (int z = iZ; z < iEndZ; ++z) PassRun<UPDATE, LANES>(rP, aPass, afX, z, rParked[z - iZ]);
        iFirst += iGroup;
    } while (iFirst < iViews);
}

template <EUpdate UPDATE, int LANES>
static void BackTiles(const BackParams& rP, const BackView* pViews, int iViews, Share aTileRows)
{
    ParkedTile<LANES> aParked;
    for (int i = aTileRows.iFirst; i < aTileRows.iEnd; ++i)
        for (int x = 0; x < rP.iVolX; x += g_iBackRun)
            BackTile<UPDATE, LANES>(rP, pViews, iViews, x, i * g_iBackTile, aParked);
}

template <int LANES>
static void BackLanes(const BackParams& rP, const BackView* pViews, int iViews, Share aTileRows)
{
    if (rP.eUpdate == EUpdate::eSart)
        BackTiles<EUpdate::eSart, LANES>(rP, pViews, iViews, aTileRows);
    else
        BackTiles<EUpdate::eEm, LANES>(rP, pViews, iViews, aTileRows);
}
