// Smoothing of a volume: one tile of a slice at a time, many voxels along X at once. Included
// inside the namespace of an instruction set. A voxel goes through the same operations wherever it
// stands in a tile.

/// Voxels along X that one step works on: several registers, to hide the latency of the sums.
constexpr int g_iSpan = TALVEN_VECTOR < 8 ? 32 : 64;

/// Part of a slice: voxels [iX, iX + iWidth) of rows [iY, iY + iRows).
struct SmoothTile
{
    int iX, iY, iZ;
    int iWidth, iRows;
};

/// The columns of a tile with its neighbours: those that the volume has, and the others.
struct SmoothColumns
{
    int iFirst;  ///< column of the volume
    int iLeft;   ///< columns missing before it
    int iCount;  ///< columns there
    int iAll;    ///< with those missing on both sides
};

DEVICE_FN SmoothColumns ColumnsOf(const SmoothParams& rP, const SmoothTile& rTile)
{
    const int iHalf = rP.aKernel.iWidth / 2;
    SmoothColumns aColumns;
    aColumns.iAll = rTile.iWidth + rP.aKernel.iWidth - 1;
    aColumns.iLeft = rTile.iX < iHalf ? iHalf - rTile.iX : 0;
    aColumns.iFirst = rTile.iX - iHalf + aColumns.iLeft;
    const int iWanted = aColumns.iAll - aColumns.iLeft;
    const int iThere = rP.aVol.iWidth - aColumns.iFirst;
    aColumns.iCount = iWanted < iThere ? iWanted : iThere;
    return aColumns;
}

/// Repeats the edge voxels of a row where the volume has none.
DEVICE_FN void FillSides(const SmoothColumns& rColumns, float* pfRow)
{
    for (int x = 0; x < rColumns.iLeft; ++x) pfRow[x] = pfRow[rColumns.iLeft];
    const int iEnd = rColumns.iLeft + rColumns.iCount;
    for (int x = iEnd; x < rColumns.iAll; ++x) pfRow[x] = pfRow[iEnd - 1];
}

/// One row summed over Z, with its neighbours along X.
static void SumOverZ(const SmoothParams& rP, const float* pfZ, const SmoothColumns& rColumns,
                     int iY, int iZ, float* pfRow)
{
    using L = Lanes<g_iSpan>;
    const int iTaps = rP.aKernel.iDepth, iHalf = iTaps / 2;
    const int iWhole = rColumns.iCount / g_iSpan * g_iSpan;
    float* pfSums = pfRow + rColumns.iLeft;
    for (int x = 0; x < iWhole; x += g_iSpan)
    {
        L aSum = Fill<g_iSpan>(0.0f);
        for (int c = 0; c < iTaps; ++c)
            AddWeighted<g_iSpan>(aSum, pfZ[c],
                                 VolumeRow(rP.aVol, iY, iZ + c - iHalf) + rColumns.iFirst + x);
        Store<g_iSpan>(pfSums + x, aSum);
    }
    if (const int iRest = rColumns.iCount - iWhole)
    {
        float afPart[g_iSpan] = {};
        L aSum = Fill<g_iSpan>(0.0f);
        for (int c = 0; c < iTaps; ++c)
        {
            const float* pfFrom = VolumeRow(rP.aVol, iY, iZ + c - iHalf) + rColumns.iFirst + iWhole;
            __builtin_memcpy(afPart, pfFrom, sizeof(float) * iRest);
            AddWeighted<g_iSpan>(aSum, pfZ[c], afPart);
        }
        Store<g_iSpan>(pfSums + iWhole, aSum);
    }
    FillSides(rColumns, pfRow);
}

static void StoreSpan(const Lanes<g_iSpan>& rSpan, float* pfTo, int iRoom)
{
    if (iRoom >= g_iSpan) return Store<g_iSpan>(pfTo, rSpan);
    float afPart[g_iSpan];
    Store<g_iSpan>(afPart, rSpan);
    __builtin_memcpy(pfTo, afPart, sizeof(float) * iRoom);
}

/// A product of three factors: sums over Z, then over Y, then over X.
static void SmoothSeparable(const SmoothParams& rP, const SmoothFactors& rFactors,
                            const SmoothTile& rTile, float* pfScratch)
{
    const std::size_t tPitch = SmoothPitch(rP.aKernel.iWidth);
    const SmoothColumns aColumns = ColumnsOf(rP, rTile);
    const int iTapsX = rP.aKernel.iWidth, iTapsY = rP.aKernel.iHeight;
    const int iRegion = rTile.iRows + iTapsY - 1;
    for (int r = 0; r < iRegion; ++r)
        SumOverZ(rP, rFactors.pfZ, aColumns, rTile.iY + r - iTapsY / 2, rTile.iZ,
                 pfScratch + r * tPitch);

    float* pfRow = pfScratch + iRegion * tPitch;
    for (int y = 0; y < rTile.iRows; ++y)
    {
        for (int x = 0; x < aColumns.iAll; x += g_iSpan)
        {
            Lanes<g_iSpan> aSum = Fill<g_iSpan>(0.0f);
            for (int b = 0; b < iTapsY; ++b)
                AddWeighted<g_iSpan>(aSum, rFactors.pfY[b], pfScratch + (y + b) * tPitch + x);
            Store<g_iSpan>(pfRow + x, aSum);
        }
        float* pfOut = RowOf(rP.aOut, rTile.iZ * rP.aVol.iHeight + rTile.iY + y) + rTile.iX;
        for (int x = 0; x < rTile.iWidth; x += g_iSpan)
        {
            Lanes<g_iSpan> aSum = Fill<g_iSpan>(0.0f);
            for (int a = 0; a < iTapsX; ++a)
                AddWeighted<g_iSpan>(aSum, rFactors.pfX[a], pfRow + x + a);
            StoreSpan(aSum, pfOut + x, rTile.iWidth - x);
        }
    }
}

/// Adds the part of one kernel slice to the sums of a tile row.
static void AddKernelSlice(const SmoothParams& rP, const float* pfSlice, const float* pfRegion,
                           int iWidth, float* pfSums)
{
    const std::size_t tPitch = SmoothPitch(rP.aKernel.iWidth);
    const int iTapsX = rP.aKernel.iWidth, iTapsY = rP.aKernel.iHeight;
    for (int x = 0; x < iWidth; x += g_iSpan)
    {
        Lanes<g_iSpan> aSum = Load<g_iSpan>(pfSums + x);
        for (int b = 0; b < iTapsY; ++b)
            for (int a = 0; a < iTapsX; ++a)
                AddWeighted<g_iSpan>(aSum, pfSlice[b * iTapsX + a], pfRegion + b * tPitch + x + a);
        Store<g_iSpan>(pfSums + x, aSum);
    }
}

/// Any kernel, in its own order: slice by slice, row by row, column by column.
static void SmoothDirect(const SmoothParams& rP, const SmoothTile& rTile, float* pfScratch)
{
    const std::size_t tPitch = SmoothPitch(rP.aKernel.iWidth);
    const SmoothColumns aColumns = ColumnsOf(rP, rTile);
    const int iTapsY = rP.aKernel.iHeight, iTapsZ = rP.aKernel.iDepth;
    const int iRegion = rTile.iRows + iTapsY - 1;
    float* pfSums = pfScratch + iRegion * tPitch;  // [row][g_iSmoothTileX]
    __builtin_memset(pfSums, 0, sizeof(float) * g_iSmoothTileX * rTile.iRows);
    for (int c = 0; c < iTapsZ; ++c)
    {
        for (int r = 0; r < iRegion; ++r)
        {
            const float* pfFrom =
                VolumeRow(rP.aVol, rTile.iY + r - iTapsY / 2, rTile.iZ + c - iTapsZ / 2);
            __builtin_memcpy(pfScratch + r * tPitch + aColumns.iLeft, pfFrom + aColumns.iFirst,
                             sizeof(float) * aColumns.iCount);
            FillSides(aColumns, pfScratch + r * tPitch);
        }
        const float* pfSlice = RowOf(rP.aKernel, c * iTapsY);
        for (int y = 0; y < rTile.iRows; ++y)
            AddKernelSlice(rP, pfSlice, pfScratch + y * tPitch, rTile.iWidth,
                           pfSums + y * g_iSmoothTileX);
    }
    for (int y = 0; y < rTile.iRows; ++y)
        __builtin_memcpy(RowOf(rP.aOut, rTile.iZ * rP.aVol.iHeight + rTile.iY + y) + rTile.iX,
                         pfSums + y * g_iSmoothTileX, sizeof(float) * rTile.iWidth);
}

static void Smooth(const SmoothParams& rP, const SmoothFactors& rFactors, Share aStrips,
                   float* pfScratch)
{
    const DeviceImage& rVol = rP.aVol;
    for (int i = aStrips.iFirst; i < aStrips.iEnd; ++i)
    {
        SmoothTile aTile;
        aTile.iZ = i % rVol.iDepth;  // the same strip of the next slice reads much of the same
        aTile.iY = i / rVol.iDepth * g_iSmoothTileY;
        aTile.iRows = rVol.iHeight - aTile.iY;
        if (aTile.iRows > g_iSmoothTileY) aTile.iRows = g_iSmoothTileY;
        for (aTile.iX = 0; aTile.iX < rVol.iWidth; aTile.iX += g_iSmoothTileX)
        {
            aTile.iWidth = rVol.iWidth - aTile.iX;
            if (aTile.iWidth > g_iSmoothTileX) aTile.iWidth = g_iSmoothTileX;
            if (rFactors.pfX)
                SmoothSeparable(rP, rFactors, aTile, pfScratch);
            else
                SmoothDirect(rP, aTile, pfScratch);
        }
    }
}
