#include "Preview.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "GreyImage.h"
#include "talven/Text.h"

namespace talven
{
namespace
{

constexpr int g_iLeastWide = 100;     // room for the title of a narrow slice
constexpr double g_dMostWide = 1500;  // of all slices together
constexpr double g_dWantWide = 750;
constexpr double g_dMostHigh = 1200;
constexpr double g_dBlackPercent = 0.5, g_dWhitePercent = 99.5;

double ChooseScale(std::span<const Slice> aViews)
{
    double dWide = 0;
    double dHigh = 0;
    for (const Slice& rView : aViews)
    {
        dWide += rView.iWidth;
        dHigh = std::max<double>(dHigh, rView.iHeight);
    }
    const double dMost = std::min(g_dMostWide / dWide, g_dMostHigh / dHigh);
    if (dMost < 1) return dMost;
    return std::max(1.0, std::floor(std::min(dMost, std::ceil(g_dWantWide / dWide))));
}

}  // namespace

const char* GetSliceName(const Slice& rSlice)
{
    return rSlice.cAxis == 'z' ? "XY" : rSlice.cAxis == 'x' ? "ZY" : "XZ";
}

CPicture DrawPreview(const CSlices& rViews)
{
    const std::span<const Slice> aViews = rViews.Get();
    const double dScale = ChooseScale(aViews);
    const auto GetCell = [dScale](const Slice& rView)
    { return std::max(g_iLeastWide, ScaledExtent(rView.iWidth, dScale)) + g_iGap; };
    int iWidth = g_iGap;
    int iHeight = 0;
    for (const Slice& rView : aViews)
    {
        iWidth += GetCell(rView);
        iHeight = std::max(iHeight, ScaledExtent(rView.iHeight, dScale));
    }
    const GreyScale aGrey = GreyScale::Find(aViews, g_dBlackPercent, g_dWhitePercent);
    CPicture aPicture(iWidth, iHeight + g_iTitleHeight + 2 * g_iGap);
    double dX = g_iGap;
    for (const Slice& rView : aViews)
    {
        DrawSlice(aPicture, rView, aGrey, dX, g_iGap + g_iTitleHeight, dScale,
                  Format("%s   %c = %d", GetSliceName(rView), rView.cAxis, rView.iAt));
        dX += GetCell(rView);
    }
    return aPicture;
}

bool WritePreview(const std::string& strPath, const CSlices& rViews, std::string& rError)
{
    return DrawPreview(rViews).Write(strPath, rError);
}

std::vector<CPicture> DrawSlices(const CSlices& rViews)
{
    const std::span<const Slice> aViews = rViews.Get();
    const double dScale = ChooseScale(aViews);
    const GreyScale aGrey = GreyScale::Find(aViews, g_dBlackPercent, g_dWhitePercent);
    std::vector<CPicture> aPictures;
    for (const Slice& rView : aViews)
    {
        const CPicture& rPicture = aPictures.emplace_back(ScaledExtent(rView.iWidth, dScale),
                                                          ScaledExtent(rView.iHeight, dScale));
        DrawSlice(rPicture, rView, aGrey, 0, 0, dScale, "");
    }
    return aPictures;
}

}  // namespace talven
