#include "talven/ViewLevels.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

#include "talven/ViewQuality.h"

namespace talven
{
namespace
{

constexpr double g_dRing = 0.06;      // of the shorter edge
constexpr double g_dDarkest = 0.005;  // share of the pixels
constexpr double g_dBeyond = 0.3;     // of the median: edges as bright as that are specimen
constexpr double g_dLayer = 4;        // times as thick as the darkest pixels ask for

/// The value that this share of them lies below; 0 for none.
float GetQuantile(std::vector<float>& rValues, double dShare)
{
    if (rValues.empty()) return 0;
    const auto pMiddle = rValues.begin() + std::ptrdiff_t(dShare * double(rValues.size()));
    std::ranges::nth_element(rValues, pMiddle);
    return *pMiddle;
}

float GetRing(std::span<const float> fView, const ImageSize& rSize)
{
    const int iRing = std::max(2, int(g_dRing * std::min(rSize.iX, rSize.iY)));
    std::vector<float> vfRing;
    for (int y = 0; y < rSize.iY; ++y)
        for (int x = 0; x < rSize.iX; ++x)
        {
            const int iEdge = std::min({x, y, rSize.iX - 1 - x, rSize.iY - 1 - y});
            const float fPixel = fView[std::size_t(y) * std::size_t(rSize.iX) + std::size_t(x)];
            if (iEdge < iRing && !IsMissing(fPixel)) vfRing.push_back(fPixel);
        }
    return GetQuantile(vfRing, 0.5);
}

}  // namespace

std::vector<double> FindLevels(const ImageSize& rSize, std::span<const float> fAngles, bool bSlab,
                               std::span<const float> fViews, bool& rBeyond)
{
    const auto GetView = [&](std::size_t i)
    { return fViews.subspan(i * rSize.GetPixels(), rSize.GetPixels()); };
    std::vector<double> vdRings;
    for (std::size_t i = 0; i < fAngles.size(); ++i)
        vdRings.push_back(double(GetRing(GetView(i), rSize)));
    const std::vector<double> vdEdges = vdRings;
    ViewCourse aCourse;
    if (bSlab && FindCourse(vdRings, fAngles, aCourse)) std::ranges::fill(vdRings, aCourse.dLevel);
    std::vector<float> vfAll;
    for (std::size_t i = 0; i < fAngles.size(); ++i)
        for (const float fPixel : GetView(i))
            if (!IsMissing(fPixel)) vfAll.push_back(fPixel - float(vdRings[i]));
    std::vector<double> vdAbove;
    for (std::size_t i = 0; i < fAngles.size(); ++i) vdAbove.push_back(vdEdges[i] - vdRings[i]);
    std::ranges::nth_element(vdAbove, vdAbove.begin() + std::ptrdiff_t(vdAbove.size() / 2));
    const double dMedian = double(GetQuantile(vfAll, 0.5));
    rBeyond = vdAbove[vdAbove.size() / 2] > g_dBeyond * dMedian;
    const double dLayer = std::max(0.0, -g_dLayer * double(GetQuantile(vfAll, g_dDarkest)));
    std::vector<double> vdLevels;
    for (std::size_t i = 0; i < fAngles.size(); ++i)
        vdLevels.push_back(
            (bSlab ? dLayer / std::cos(double(fAngles[i]) * std::numbers::pi / 180) : 0) -
            vdRings[i]);
    return vdLevels;
}

}  // namespace talven
