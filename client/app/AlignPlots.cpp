#include "AlignPlots.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <iterator>
#include <utility>

#include "Plot.h"
#include "talven/Text.h"

namespace talven
{
namespace
{

constexpr CPlot::Colour g_aPale = {0.6, 0.7, 0.8};
constexpr int g_iWidth = 800, g_iHeight = 420;

/// The views that are used, or those that are left out, by angle: values over angles.
std::vector<PlotPoint> PickPoints(const SeriesAlignment& rAlignment, std::span<const float> fAngles,
                                  bool bLeftOut,
                                  const std::function<double(std::size_t tView)>& rGet)
{
    std::vector<PlotPoint> aPoints;
    for (std::size_t i = 0; i < fAngles.size(); ++i)
        if (rAlignment.aViews[i].bLeftOut == bLeftOut)
            aPoints.push_back({double(fAngles[i]), rGet(i)});
    std::ranges::stable_sort(aPoints, {}, &PlotPoint::dX);
    return aPoints;
}

std::vector<double> GetValues(std::span<const PlotPoint> aPoints)
{
    std::vector<double> vdValues;
    for (const PlotPoint& rPoint : aPoints) vdValues.push_back(rPoint.dY);
    return vdValues;
}

/// An arrow at the lower edge with a text.
void MarkBelow(const CPlot& rPlot, const Axis& rY, double dX, const std::string& strText)
{
    rPlot.DrawBelow(dX, CPlot::m_aRed);
    rPlot.DrawLabel({dX, rY.dFrom + 0.03 * (rY.dTo - rY.dFrom)}, strText, CPlot::m_aRed);
}

/// How much larger the difference is than the least one.
std::vector<PlotPoint> GetDifferences(const AxisCurve& rCurve)
{
    const double dLeast = std::max(1e-300, -std::ranges::max(rCurve.vdScores));
    std::vector<PlotPoint> aPoints;
    for (std::size_t i = 0; i < rCurve.vdAngles.size(); ++i)
        aPoints.push_back({rCurve.vdAngles[i], std::sqrt(-rCurve.vdScores[i] / dLeast)});
    return aPoints;
}

}  // namespace

CPicture DrawPlaces(const SeriesAlignment& rAlignment, std::span<const float> fAngles,
                    std::span<const int> iNumbers)
{
    const auto Pick = [&](double ViewPlace::*pField)
    {
        return PickPoints(rAlignment, fAngles, false,
                          [&](std::size_t i) { return rAlignment.aPlaces.aViews[i].*pField; });
    };
    const std::vector<PlotPoint> aX = Pick(&ViewPlace::dX), aY = Pick(&ViewPlace::dY);
    std::vector<double> vdAll = GetValues(aX);
    for (const PlotPoint& rPoint : aY) vdAll.push_back(rPoint.dY);
    const Axis aPixels = MakeValueAxis(vdAll, "pixels");
    CPicture aPicture(g_iWidth, g_iHeight);
    const CPlot aPlot(aPicture, MakeAngleAxis(fAngles), aPixels);
    aPlot.DrawFrame("");
    aPlot.DrawKey(0, "x", CPlot::m_aBlue);
    aPlot.DrawKey(1, "y", CPlot::m_aOrange);
    for (const auto& [rPoints, rColour] :
         {std::pair(aX, CPlot::m_aBlue), std::pair(aY, CPlot::m_aOrange)})
    {
        aPlot.DrawLine(rPoints, rColour, 1);
        aPlot.DrawDots(rPoints, rColour);
    }
    for (const int i : rAlignment.ListLeftOut())
        MarkBelow(aPlot, aPixels, double(fAngles[std::size_t(i)]),
                  Format("%d", iNumbers[std::size_t(i)]));
    return aPicture;
}

CPicture DrawCorrelations(const SeriesAlignment& rAlignment, std::span<const float> fAngles,
                          std::span<const int> iNumbers)
{
    const auto GetCorrelation = [&](std::size_t i)
    { return rAlignment.aViews[i].aMatch.dCorrelation; };
    const std::vector<PlotPoint> aUsed = PickPoints(rAlignment, fAngles, false, GetCorrelation);
    CPicture aPicture(g_iWidth, g_iHeight);
    const Axis aY = MakeValueAxis(GetValues(aUsed), "correlation");
    const CPlot aPlot(aPicture, MakeAngleAxis(fAngles), aY);
    aPlot.DrawFrame("");
    aPlot.DrawLine(aUsed, g_aPale, 1);
    aPlot.DrawDots(aUsed, CPlot::m_aBlue);
    for (const int i : rAlignment.ListLeftOut())
    {
        const double dValue = GetCorrelation(std::size_t(i));
        const PlotPoint aPoint = {double(fAngles[std::size_t(i)]), dValue};
        if (dValue < aY.dFrom)
        {
            MarkBelow(aPlot, aY, aPoint.dX, Format("%d: %.2f", iNumbers[std::size_t(i)], dValue));
            continue;
        }
        aPlot.DrawDots({&aPoint, 1}, CPlot::m_aRed);
        aPlot.DrawLabel(aPoint, Format("%d", iNumbers[std::size_t(i)]), CPlot::m_aRed);
    }
    return aPicture;
}

CPicture DrawAxisCurve(const AxisCurve& rCurve)
{
    const std::vector<PlotPoint> aPoints = GetDifferences(rCurve);
    const std::vector<float> vfAngles(rCurve.vdAngles.begin(), rCurve.vdAngles.end());
    Axis aX = MakeAngleAxis(vfAngles);
    aX.strTitle = "tilt axis, degrees";
    const Axis aY = MakeValueAxis(GetValues(aPoints), "difference over the least");
    CPicture aPicture(g_iWidth, g_iHeight);
    const CPlot aPlot(aPicture, aX, aY);
    aPlot.DrawFrame("");
    if (!rCurve.bFlat)
    {
        const PlotPoint aBest[] = {{rCurve.dBest, aY.dFrom}, {rCurve.dBest, aY.dTo}};
        aPlot.DrawLine(aBest, CPlot::m_aOrange, 2);
        aPlot.DrawKey(0, Format("%.3f°", rCurve.dBest), CPlot::m_aOrange);
    }
    aPlot.DrawLine(aPoints, g_aPale, 1);
    aPlot.DrawDots(aPoints, CPlot::m_aBlue);
    return aPicture;
}

CPicture DrawRounds(std::span<const AlignRound> aRounds)
{
    std::vector<AlignRound> aShown;
    std::ranges::remove_copy_if(aRounds, std::back_inserter(aShown), &AlignRound::bTrial);
    std::vector<double> vdMoved(aShown.size());
    std::ranges::transform(aShown, vdMoved.begin(), &AlignRound::dMoved);
    const Axis aY = MakeLogAxis(vdMoved, "moved, pixels");
    CPicture aPicture(g_iWidth, g_iHeight);
    const CPlot aPlot(aPicture, MakeCountAxis(aShown.size(), "round"), aY);
    aPlot.DrawFrame("");
    int iBins = 0;
    for (std::size_t i = 0; i < aShown.size(); ++iBins)
    {
        const int iBin = aShown[i].iBin;
        std::vector<PlotPoint> aPoints;
        for (; i < aShown.size() && aShown[i].iBin == iBin; ++i)
            if (aShown[i].dMoved > 0)  // nothing at all has no logarithm
                aPoints.push_back({double(i + 1), std::log10(aShown[i].dMoved)});
        const CPlot::Colour aColour = iBins % 2 == 0 ? CPlot::m_aBlue : CPlot::m_aOrange;
        aPlot.DrawKey(iBins, Format("bin %d", iBin), aColour);
        aPlot.DrawLine(aPoints, aColour, 1);
        aPlot.DrawDots(aPoints, aColour);
    }
    return aPicture;
}

}  // namespace talven
