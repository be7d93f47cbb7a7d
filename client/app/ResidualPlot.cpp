#include "ResidualPlot.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "Plot.h"
#include "talven/Text.h"

namespace talven
{

CPicture DrawResiduals(std::span<const ViewQuality> aViews, std::span<const int> iNumbers,
                       std::span<const float> fAngles)
{
    std::vector<PlotPoint> aGood, aBad;
    std::vector<double> vdShown;
    for (std::size_t i = 0; i < aViews.size(); ++i)
        if (const double dResidual = aViews[i].dResidual; std::isfinite(dResidual))
            (aViews[i].IsSuspect() ? aBad : aGood).push_back({double(fAngles[i]), dResidual});
    for (const PlotPoint& rPoint : aGood) vdShown.push_back(rPoint.dY);
    const double dMost = vdShown.empty() ? HUGE_VAL : 3 * std::ranges::max(vdShown);
    for (const PlotPoint& rPoint : aBad)
        if (rPoint.dY <= dMost) vdShown.push_back(rPoint.dY);
    std::ranges::stable_sort(aGood, {}, &PlotPoint::dX);

    CPicture aPicture(800, 420);
    const Axis aY = MakeValueAxis(vdShown, "residual");
    const CPlot aPlot(aPicture, MakeAngleAxis(fAngles), aY);
    aPlot.DrawFrame("");
    aPlot.DrawLine(aGood, {0.6, 0.7, 0.8}, 1);
    aPlot.DrawDots(aGood, CPlot::m_aBlue);
    for (std::size_t i = 0; i < aViews.size(); ++i)
    {
        const PlotPoint aPoint = {fAngles[i], aViews[i].dResidual};
        if (!aViews[i].IsSuspect() || !std::isfinite(aPoint.dY)) continue;
        const bool bBeyond = aPoint.dY > dMost;
        if (bBeyond)
            aPlot.DrawBeyond(aPoint.dX, CPlot::m_aRed);
        else
            aPlot.DrawDots({&aPoint, 1}, CPlot::m_aRed);
        aPlot.DrawLabel({aPoint.dX, std::min(aPoint.dY, aY.dTo)},
                        Format("%d", iNumbers[i]) + (bBeyond ? Format(": %.3g", aPoint.dY) : ""),
                        CPlot::m_aRed);
    }
    return aPicture;
}

}  // namespace talven
