// Where voxels fall on detector rows. Included inside the namespace of an instruction set.

/// A run of neighbouring voxels on the row of one view: for each the detector coordinate, the
/// offset of the pixel to the left, and the weights of this pixel and the next.
struct RunPlaces
{
    const BackView* pView;
    bool bInside;      ///< all lanes see the whole tile; the coordinates are not there then
    unsigned uMissed;  ///< bit j: not every lane sees voxel j
    unsigned uUnseen;  ///< bit j: no lane sees voxel j
    alignas(64) float afU[g_iBackRun];
    alignas(64) int aiOffset[g_iBackRun];
    alignas(64) float afLeft[g_iBackRun], afRight[g_iBackRun];
};

template <EUpdate UPDATE, class T>
DEVICE_FN auto Skips(T fU, T fFirst, T fEnd)
{
    if constexpr (UPDATE == EUpdate::eSart)
        return SartSkips<T>(fU, fFirst, fEnd);
    else
        return EmSkips<T>(fU, fFirst, fEnd);
}

/// Chooses those of the views that may see some of a tile.
/// \param fMiddleX, fMiddleZ  middle of the tile from the middle of the slice
/// \return how many, in their order
DEVICE_FN int ChooseViews(const BackView* pViews, int iViews, float fMiddleX, float fMiddleZ,
                          float fCentreU, RunPlaces* pPlaces)
{
    int iChosen = 0;
    for (int v = 0; v < iViews; ++v)
    {
        const BackView& rView = pViews[v];
        const float fU = DetectorCoordinate(fCentreU, fMiddleX, fMiddleZ, rView.fCos, rView.fSin);
        if (fU < rView.fNoneBefore || fU > rView.fNoneAfter) continue;
        RunPlaces& rPlaces = pPlaces[iChosen++];
        rPlaces.pView = &rView;
        rPlaces.bInside = fU > rView.fAllFrom && fU < rView.fAllTo;
        rPlaces.uMissed = rPlaces.uUnseen = 0;
    }
    return iChosen;
}

/// Places a run. CLAMP: coordinates off the row read its first or last pixel; without it all of
/// them are known to lie inside.
/// \param pfX, fZ  voxel centres from the middle of the slice
template <bool CLAMP, int LANES>
DEVICE_FN void PlaceRun(const float* pfX, float fZ, float fCentreU, int iProjX, RunPlaces& rPlaces)
{
    const float fCos = rPlaces.pView->fCos, fSin = rPlaces.pView->fSin;
    const float fLast = static_cast<float>(iProjX - 1);
    const int iLastLeft = iProjX > 1 ? iProjX - 2 : 0;
    TALVEN_INDEPENDENT
#pragma GCC unroll 1  // or it becomes straight scalar code
    for (int j = 0; j < g_iBackRun; ++j)
    {
        const float fU = DetectorCoordinate(fCentreU, pfX[j], fZ, fCos, fSin);
        float fInside = fU;
        if constexpr (CLAMP)
        {
            fInside = fU > 0.0f ? fU : 0.0f;
            fInside = fInside < fLast ? fInside : fLast;
        }
        int iLeft = static_cast<int>(fInside);
        if constexpr (CLAMP) iLeft = iLeft < iLastLeft ? iLeft : iLastLeft;
        const float fRight = fInside - static_cast<float>(iLeft);
        if constexpr (CLAMP) rPlaces.afU[j] = fU;
        rPlaces.aiOffset[j] = iLeft * LANES;
        rPlaces.afRight[j] = fRight;
        rPlaces.afLeft[j] = 1.0f - fRight;
    }
}

/// Bits of the voxels that get nothing from a row with these columns.
template <EUpdate UPDATE>
DEVICE_FN unsigned SkippedBits(const float* pfU, float fFirst, float fEnd)
{
    unsigned uBits = 0;
#pragma GCC unroll 1
    for (int j = 0; j < g_iBackRun; ++j)
        uBits |= Skips<UPDATE, float>(pfU[j], fFirst, fEnd) ? 1u << j : 0u;
    return uBits;
}

/// Places a run on the rows of all chosen views.
template <EUpdate UPDATE, int LANES>
DEVICE_FN void PlaceOnAll(const float* pfX, float fZ, float fCentreU, int iProjX,
                          RunPlaces* pPlaces, int iPlaces)
{
    for (int v = 0; v < iPlaces; ++v)
    {
        RunPlaces& rPlaces = pPlaces[v];
        if (rPlaces.bInside)
        {
            PlaceRun<false, LANES>(pfX, fZ, fCentreU, iProjX, rPlaces);
            continue;
        }
        const BackView& rView = *rPlaces.pView;
        PlaceRun<true, LANES>(pfX, fZ, fCentreU, iProjX, rPlaces);
        rPlaces.uMissed = SkippedBits<UPDATE>(rPlaces.afU, rView.fAllFirst, rView.fAllEnd);
        rPlaces.uUnseen = SkippedBits<UPDATE>(rPlaces.afU, rView.fAnyFirst, rView.fAnyEnd);
    }
}
