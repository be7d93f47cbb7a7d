// Back projection. Included inside the namespace of an instruction set.
//
// A block of neighbouring voxels keeps its sums in registers while all projections of the set pass
// over it. Blocks are as square as they can be, for they read the fewest detector pixels then.

/// Shape of a block: as many voxels as there are registers for their sums.
template <int LANES>
struct Block
{
    static constexpr int iVoxels = (TALVEN_VECTOR == 16 ? 16 : 8) / Lanes<LANES>::iCount;
    static constexpr int iX = iVoxels >= 8 ? 4 : iVoxels >= 2 ? 2 : 1;
    static constexpr int iZ = iVoxels / iX;
};

/// Sums of one block, and the projections that reached each voxel: those that reached all voxels
/// in all lanes, and the others.
template <int LANES>
struct BlockSums
{
    Lanes<LANES> aSum[Block<LANES>::iVoxels];
    int iHits;
    bool bMixed;
    alignas(64) float afMixedHits[Block<LANES>::iVoxels * LANES];
};

/// Where the voxels of a block fall on a detector row: coordinate, offset of the pixel to the left,
/// and the weights of this pixel and the next.
template <int LANES>
struct BlockCoords
{
    alignas(64) float afU[Block<LANES>::iVoxels];
    alignas(64) int aiOffset[Block<LANES>::iVoxels];
    alignas(64) float afLeft[Block<LANES>::iVoxels], afRight[Block<LANES>::iVoxels];
};

/// Voxel centres of a block from the middle of the slice.
template <int LANES>
struct BlockCentres
{
    alignas(64) float afX[Block<LANES>::iVoxels], afZ[Block<LANES>::iVoxels];
};

/// Places a block on a detector row. CLAMP: coordinates off the row read its first or last pixel;
/// without it all of them are known to lie inside.
template <bool CLAMP, int LANES>
DEVICE_FN void PlaceBlock(const BackView& rView, float fCentreU,
                          const BlockCentres<LANES>& rCentres, int iProjX,
                          BlockCoords<LANES>& rCoords)
{
    using B = Block<LANES>;
    const float fCos = rView.fCos, fSin = rView.fSin;
    const float fLast = static_cast<float>(iProjX - 1);
    const int iLastLeft = iProjX > 1 ? iProjX - 2 : 0;
    TALVEN_INDEPENDENT
#pragma GCC unroll 1  // or it becomes straight scalar code
    for (int j = 0; j < B::iVoxels; ++j)
    {
        const float fU = DetectorCoordinate(fCentreU, rCentres.afX[j], rCentres.afZ[j], fCos, fSin);
        float fInside = fU;
        if constexpr (CLAMP)
        {
            fInside = fU > 0.0f ? fU : 0.0f;
            fInside = fInside < fLast ? fInside : fLast;
        }
        int iLeft = static_cast<int>(fInside);
        if constexpr (CLAMP) iLeft = iLeft < iLastLeft ? iLeft : iLastLeft;
        const float fRight = fInside - static_cast<float>(iLeft);
        if constexpr (CLAMP) rCoords.afU[j] = fU;
        rCoords.aiOffset[j] = iLeft * LANES;
        rCoords.afRight[j] = fRight;
        rCoords.afLeft[j] = 1.0f - fRight;
    }
}

/// Adds a view that only some voxels or lanes see.
template <EUpdate UPDATE, int LANES>
static void AddMixed(const BackView& rView, const BlockCoords<LANES>& rCoords, int iStep,
                     BlockSums<LANES>& rSums)
{
    using B = Block<LANES>;
    using L = Lanes<LANES>;
    using V = typename L::Vector;
    if (!rSums.bMixed)
    {
        rSums.bMixed = true;
        for (int j = 0; j < B::iVoxels * LANES; ++j) rSums.afMixedHits[j] = 0.0f;
    }
    const L aFirst = Load<LANES>(rView.afFirst), aEnd = Load<LANES>(rView.afEnd);
    for (int j = 0; j < B::iVoxels; ++j)
    {
        L aSum = rSums.aSum[j];
        AddWeighted<LANES>(aSum, rCoords.afLeft[j], rView.pfRow + rCoords.aiOffset[j]);
        AddWeighted<LANES>(aSum, rCoords.afRight[j], rView.pfRow + rCoords.aiOffset[j] + iStep);
        L aHits = Load<LANES>(rSums.afMixedHits + j * LANES);
        const L aU = Fill<LANES>(rCoords.afU[j]);
        for (int k = 0; k < L::iCount; ++k)
        {
            const auto vSkip = UPDATE == EUpdate::eSart
                                   ? SartSkips<V>(aU.av[k], aFirst.av[k], aEnd.av[k])
                                   : EmSkips<V>(aU.av[k], aFirst.av[k], aEnd.av[k]);
            rSums.aSum[j].av[k] = vSkip ? rSums.aSum[j].av[k] : aSum.av[k];
            aHits.av[k] = vSkip ? aHits.av[k] : aHits.av[k] + 1.0f;
        }
        Store<LANES>(rSums.afMixedHits + j * LANES, aHits);
    }
}

/// Whether all voxels of a block lie in the valid columns of all lanes.
template <EUpdate UPDATE, int LANES>
DEVICE_FN bool SeenByAll(const BackView& rView, const BlockCoords<LANES>& rCoords)
{
    int iSkipped = 0;
    for (int j = 0; j < Block<LANES>::iVoxels; ++j)
        iSkipped |= UPDATE == EUpdate::eSart
                        ? SartSkips(rCoords.afU[j], rView.fAllFirst, rView.fAllEnd)
                        : EmSkips(rCoords.afU[j], rView.fAllFirst, rView.fAllEnd);
    return !iSkipped;
}

/// Adds all views to the block whose first voxel lies at (fX, fZ) from the middle of the slice.
template <EUpdate UPDATE, int LANES>
DEVICE_FN void SumBlock(const BackParams& rP, const BackView* pViews, int iViews, float fX,
                        float fZ, BlockSums<LANES>& rSums)
{
    using B = Block<LANES>;
    const float fCentreU = (rP.iProjX - 1) * 0.5f;
    const int iStep = rP.iProjX > 1 ? LANES : 0;
    rSums.iHits = 0;
    rSums.bMixed = false;
    Lanes<LANES> aSum[B::iVoxels];
#pragma GCC unroll 16
    for (int j = 0; j < B::iVoxels; ++j) aSum[j] = Fill<LANES>(0.0f);
    BlockCoords<LANES> aCoords;
    BlockCentres<LANES> aCentres;
    for (int j = 0; j < B::iVoxels; ++j)
    {
        aCentres.afX[j] = fX + static_cast<float>(j % B::iX);
        aCentres.afZ[j] = fZ + static_cast<float>(j / B::iX);
    }
    const float fMiddleX = fX + (B::iX - 1) * 0.5f, fMiddleZ = fZ + (B::iZ - 1) * 0.5f;
    for (int v = 0; v < iViews; ++v)
    {
        const BackView& rView = pViews[v];
        const float fMiddleU =
            DetectorCoordinate(fCentreU, fMiddleX, fMiddleZ, rView.fCos, rView.fSin);
        if (fMiddleU < rView.fNoneBefore || fMiddleU > rView.fNoneAfter) continue;
        bool bAll = fMiddleU > rView.fAllFrom && fMiddleU < rView.fAllTo;
        if (bAll)
            PlaceBlock<false, LANES>(rView, fCentreU, aCentres, rP.iProjX, aCoords);
        else
        {
            PlaceBlock<true, LANES>(rView, fCentreU, aCentres, rP.iProjX, aCoords);
            bAll = SeenByAll<UPDATE, LANES>(rView, aCoords);
        }
        if (bAll)
        {
            ++rSums.iHits;
#pragma GCC unroll 16
            for (int j = 0; j < B::iVoxels; ++j)
            {
                const float* pfLeft = rView.pfRow + aCoords.aiOffset[j];
                AddWeighted<LANES>(aSum[j], aCoords.afLeft[j], pfLeft);
                AddWeighted<LANES>(aSum[j], aCoords.afRight[j], pfLeft + iStep);
            }
        }
        else
        {
#pragma GCC unroll 16
            for (int j = 0; j < B::iVoxels; ++j) rSums.aSum[j] = aSum[j];
            AddMixed<UPDATE, LANES>(rView, aCoords, iStep, rSums);
#pragma GCC unroll 16
            for (int j = 0; j < B::iVoxels; ++j) aSum[j] = rSums.aSum[j];
        }
    }
#pragma GCC unroll 16
    for (int j = 0; j < B::iVoxels; ++j) rSums.aSum[j] = aSum[j];
}

/// Writes the new values of the voxels of a block that exist.
template <EUpdate UPDATE, int LANES>
DEVICE_FN void UpdateBlock(const BackParams& rP, int iViews, int iX, int iZ,
                           const BlockSums<LANES>& rSums)
{
    using B = Block<LANES>;
    using L = Lanes<LANES>;
    using V = typename L::Vector;
    const int iCountX = rP.iVolX - iX < B::iX ? rP.iVolX - iX : B::iX;
    const int iCountZ = rP.iVolZ - iZ < B::iZ ? rP.iVolZ - iZ : B::iZ;
    for (int z = 0; z < iCountZ; ++z)
        for (int x = 0; x < iCountX; ++x)
        {
            const int j = z * B::iX + x;
            float* pfVoxel =
                RowOf(rP.aVol, iZ + z + 1) + static_cast<std::size_t>(iX + x + 1) * LANES;
            L aValue = Load<LANES>(pfVoxel);
            L aHits = Fill<LANES>(static_cast<float>(rSums.iHits));
            if (rSums.bMixed) aHits = Add<LANES>(aHits, Load<LANES>(rSums.afMixedHits + j * LANES));
            for (int k = 0; k < L::iCount; ++k)
                aValue.av[k] =
                    UPDATE == EUpdate::eSart
                        ? SartUpdate<V>(aValue.av[k], rSums.aSum[j].av[k], aHits.av[k], rP.fRelax)
                        : EmUpdate<V>(aValue.av[k], rSums.aSum[j].av[k], aHits.av[k], rP.fRelax,
                                      static_cast<float>(iViews));
            Store<LANES>(pfVoxel, aValue);
        }
}

template <EUpdate UPDATE, int LANES>
static void BackTiles(const BackParams& rP, const BackView* pViews, int iViews, Share aTileRows)
{
    using B = Block<LANES>;
    const float fMiddleX = (rP.iVolX - 1) * 0.5f, fMiddleZ = (rP.iVolZ - 1) * 0.5f;
    const int iLastZ = aTileRows.iEnd * g_iBackTile;
    const int iEndZ = iLastZ < rP.iVolZ ? iLastZ : rP.iVolZ;
    BlockSums<LANES> aSums;
    for (int iTileZ = aTileRows.iFirst * g_iBackTile; iTileZ < iEndZ; iTileZ += g_iBackTile)
        for (int iTileX = 0; iTileX < rP.iVolX; iTileX += g_iBackTile)
            for (int z = iTileZ; z < iTileZ + g_iBackTile && z < iEndZ; z += B::iZ)
                for (int x = iTileX; x < iTileX + g_iBackTile && x < rP.iVolX; x += B::iX)
                {
                    SumBlock<UPDATE, LANES>(rP, pViews, iViews, x - fMiddleX, z - fMiddleZ, aSums);
                    UpdateBlock<UPDATE, LANES>(rP, iViews, x, z, aSums);
                }
}

template <int LANES>
static void BackLanes(const BackParams& rP, const BackView* pViews, int iViews, Share aTileRows)
{
    if (rP.eUpdate == EUpdate::eSart)
        BackTiles<EUpdate::eSart, LANES>(rP, pViews, iViews, aTileRows);
    else
        BackTiles<EUpdate::eEm, LANES>(rP, pViews, iViews, aTileRows);
}
