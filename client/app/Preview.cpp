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

constexpr int s_iGap = 14;            // between the slices and around them
constexpr double s_dMostWide = 1500;  // of all slices together
constexpr double s_dWantWide = 750;
constexpr double s_dMostHigh = 1200;

double ChooseScale(std::span<const View> aViews)
{
    double dWide = 0;
    double dHigh = 0;
    for (const View& rView : aViews)
    {
        dWide += rView.m_iWidth;
        dHigh = std::max<double>(dHigh, rView.m_iHeight);
    }
    const double dMost = std::min(s_dMostWide / dWide, s_dMostHigh / dHigh);
    if (dMost < 1) return dMost;
    return std::max(1.0, std::floor(std::min(dMost, std::ceil(s_dWantWide / dWide))));
}

}  // namespace

bool WritePreview(const std::string& strPath, const CVolumeViews& rViews, std::string& rError)
{
    const std::span<const View> aViews = rViews.GetViews();
    const double dScale = ChooseScale(aViews);
    constexpr int iLeastWide = 100;  // room for the title of a narrow slice

    std::vector<GreyImage> aImages;
    int iWidth = s_iGap;
    int iHeight = 0;
    for (const View& rView : aViews)
    {
        aImages.push_back({rView.m_iWidth, rView.m_iHeight, rView.m_vfPixels});
        iWidth += std::max(iLeastWide, ScaledExtent(rView.m_iWidth, dScale)) + s_iGap;
        iHeight = std::max(iHeight, ScaledExtent(rView.m_iHeight, dScale));
    }
    const GreyScale aGrey = GreyScale::Find(aImages, 0.5, 99.5);
    const CPicture aPicture(iWidth, iHeight + g_iTitleHeight + 2 * s_iGap);
    double dX = s_iGap;
    for (std::size_t i = 0; i < aImages.size(); ++i)
    {
        const View& rView = aViews[i];
        DrawGreyImage(aPicture, aImages[i], aGrey, dX, s_iGap + g_iTitleHeight, dScale,
                      Format("%s   %c = %d", rView.m_pcName, rView.m_cAxis, rView.m_iAt));
        dX += std::max(iLeastWide, ScaledExtent(rView.m_iWidth, dScale)) + s_iGap;
    }
    return aPicture.Write(strPath, rError);
}

}  // namespace talven
