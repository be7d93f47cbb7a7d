#include "talven/ViewPlace.h"

namespace talven
{
namespace
{

/// From the middle of the raw view to that of its blocks, pixels.
ViewPlace GetMiddle(const ImageSize& rRaw, int iBin)
{
    return {0.5 * (rRaw.iX / iBin * iBin - rRaw.iX), 0.5 * (rRaw.iY / iBin * iBin - rRaw.iY)};
}

}  // namespace

std::vector<ViewMap> ViewPlaces::MakeMaps() const
{
    std::vector<ViewMap> aMaps;
    for (const ViewPlace& r : aViews)
        aMaps.push_back(ViewMap{1, 0, 0, 1, -r.dX, -r.dY}.Then(Turn(-dTiltAxis)));
    return aMaps;
}

void ViewPlaces::Move(std::size_t tView, double dAcross, double dAlong)
{
    const ViewMap aTurn = Turn(dTiltAxis);
    aViews[tView].dX += aTurn.dA11 * dAcross + aTurn.dA12 * dAlong;
    aViews[tView].dY += aTurn.dA21 * dAcross + aTurn.dA22 * dAlong;
}

ViewPlaces ToBinned(const ViewPlaces& rPlaces, const ImageSize& rRaw, int iBin)
{
    const ViewPlace aMiddle = GetMiddle(rRaw, iBin);
    ViewPlaces aBinned = rPlaces;
    for (ViewPlace& r : aBinned.aViews)
        r = {(r.dX - aMiddle.dX) / iBin, (r.dY - aMiddle.dY) / iBin};
    return aBinned;
}

ViewPlaces ToRaw(const ViewPlaces& rPlaces, const ImageSize& rRaw, int iBin)
{
    const ViewPlace aMiddle = GetMiddle(rRaw, iBin);
    ViewPlaces aRaw = rPlaces;
    for (ViewPlace& r : aRaw.aViews) r = {iBin * r.dX + aMiddle.dX, iBin * r.dY + aMiddle.dY};
    return aRaw;
}

}  // namespace talven
