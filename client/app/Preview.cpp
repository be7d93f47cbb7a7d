#include "Preview.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "GreyImage.h"
#include "Report.h"

namespace talven
{
namespace
{

using View = CVolumeViews::View;

constexpr int g_iGap = 14;            // between the slices and around them
constexpr double g_dMostWide = 1500;  // of all slices together
constexpr double g_dWantWide = 750;
constexpr double g_dMostHigh = 1200;

double ChooseScale(std::span<const View> aViews)
{
    double dWide = 0;
    double dHigh = 0;
    for (const View& rView : aViews)
    {
        dWide += rView.iWidth;
        dHigh = std::max<double>(dHigh, rView.iHeight);
    }
    const double dMost = std::min(g_dMostWide / dWide, g_dMostHigh / dHigh);
    if (dMost < 1) return dMost;
    return std::max(1.0, std::floor(std::min(dMost, std::ceil(g_dWantWide / dWide))));
}

}  // namespace

bool WritePreview(const std::string& strPath, const CVolumeViews& rViews, std::string& rError)
{
    const std::span<const View> aViews = rViews.GetViews();
    const double dScale = ChooseScale(aViews);
    constexpr int iLeastWide = 100;  // room for the title of a narrow slice

    std::vector<GreyImage> aImages;
    int iWidth = g_iGap;
    int iHeight = 0;
    for (const View& rView : aViews)
    {
        aImages.push_back({rView.iWidth, rView.iHeight, rView.vfPixels});
        iWidth += std::max(iLeastWide, ScaledExtent(rView.iWidth, dScale)) + g_iGap;
        iHeight = std::max(iHeight, ScaledExtent(rView.iHeight, dScale));
    }
    const GreyScale aGrey = GreyScale::Find(aImages, 0.5, 99.5);
    const CPicture aPicture(iWidth, iHeight + g_iTitleHeight + 2 * g_iGap);
    double dX = g_iGap;
    for (std::size_t i = 0; i < aImages.size(); ++i)
    {
        const View& rView = aViews[i];
        DrawGreyImage(aPicture, aImages[i], aGrey, dX, g_iGap + g_iTitleHeight, dScale,
                      Format("%s   %c = %d", rView.pcName, rView.cAxis, rView.iAt));
        dX += std::max(iLeastWide, ScaledExtent(rView.iWidth, dScale)) + g_iGap;
    }
    return aPicture.Write(strPath, rError);
}

}  // namespace talven
