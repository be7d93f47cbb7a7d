#include "Preview.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "Picture.h"
#include "Report.h"

namespace talven
{
namespace
{

using View = CVolumeViews::View;

constexpr int s_iGap = 14;            // between the slices and around them
constexpr int s_iTitle = 24;          // height of the line above a slice
constexpr double s_dMostWide = 1500;  // of all slices together
constexpr double s_dWantWide = 750;
constexpr double s_dMostHigh = 1200;

struct GreyScale
{
    float m_fBlack, m_fWhite;
    std::uint32_t GetPixel(float fValue) const
    {
        const float fGrey =
            std::clamp((fValue - m_fBlack) / (m_fWhite - m_fBlack), 0.0f, 1.0f) * 255.0f + 0.5f;
        return static_cast<std::uint32_t>(fGrey) * 0x010101u;
    }
};

GreyScale FindGreyScale(std::span<const View> aViews)
{
    std::vector<float> vfAll;
    for (const View& rView : aViews)
        for (const float fPixel : rView.m_vfPixels)
            if (std::isfinite(fPixel)) vfAll.push_back(fPixel);
    const auto GetPercentile = [&vfAll](double dPercent)
    {
        if (vfAll.empty()) return 0.0f;
        const auto pNth =
            vfAll.begin() + static_cast<std::ptrdiff_t>(dPercent / 100 * double(vfAll.size() - 1));
        std::nth_element(vfAll.begin(), pNth, vfAll.end());
        return *pNth;
    };
    const float fBlack = GetPercentile(0.5);
    const float fWhite = GetPercentile(99.5);
    return {fBlack, fWhite > fBlack ? fWhite : fBlack + 1};
}

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

int Scaled(int iPixels, double dScale)
{
    return std::max(1, static_cast<int>(iPixels * dScale));
}

void DrawView(const CPicture& rPicture, const View& rView, const GreyScale& rGrey, double dX,
              double dY, double dScale)
{
    const std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> pImage(
        cairo_image_surface_create(CAIRO_FORMAT_RGB24, rView.m_iWidth, rView.m_iHeight),
        &cairo_surface_destroy);
    unsigned char* pucImage = cairo_image_surface_get_data(pImage.get());
    if (pucImage == nullptr) return;  // cairo's limit of 32767 pixels
    const int iStride = cairo_image_surface_get_stride(pImage.get());
    for (int y = 0; y < rView.m_iHeight; ++y)
    {
        // Row 0 of a volume is its lowest.
        auto* puiRow = reinterpret_cast<std::uint32_t*>(
            pucImage + std::ptrdiff_t(rView.m_iHeight - 1 - y) * iStride);
        for (int x = 0; x < rView.m_iWidth; ++x)
            puiRow[x] = rGrey.GetPixel(
                rView.m_vfPixels[std::size_t(y) * std::size_t(rView.m_iWidth) + std::size_t(x)]);
    }
    cairo_surface_mark_dirty(pImage.get());

    cairo_t* pContext = rPicture.GetContext();
    const int iWidth = Scaled(rView.m_iWidth, dScale);
    const int iHeight = Scaled(rView.m_iHeight, dScale);
    cairo_save(pContext);
    cairo_translate(pContext, dX, dY);
    cairo_rectangle(pContext, 0, 0, iWidth, iHeight);
    cairo_clip(pContext);
    cairo_scale(pContext, double(iWidth) / rView.m_iWidth, double(iHeight) / rView.m_iHeight);
    cairo_set_source_surface(pContext, pImage.get(), 0, 0);
    cairo_pattern_set_filter(cairo_get_source(pContext),
                             dScale >= 1 ? CAIRO_FILTER_NEAREST : CAIRO_FILTER_GOOD);
    cairo_paint(pContext);
    cairo_restore(pContext);

    cairo_set_source_rgb(pContext, 0, 0, 0);
    rPicture.DrawText(
        dX, dY - 5, Format("%s   %c = %d", rView.m_pcName, rView.m_cAxis, rView.m_iAt), 13, {0, 1});
}

}  // namespace

bool WritePreview(const std::string& strPath, const CVolumeViews& rViews, std::string& rError)
{
    const std::span<const View> aViews = rViews.GetViews();
    const GreyScale aGrey = FindGreyScale(aViews);
    const double dScale = ChooseScale(aViews);
    constexpr int iLeastWide = 100;  // room for the title of a narrow slice

    int iWidth = s_iGap;
    int iHeight = 0;
    for (const View& rView : aViews)
    {
        iWidth += std::max(iLeastWide, Scaled(rView.m_iWidth, dScale)) + s_iGap;
        iHeight = std::max(iHeight, Scaled(rView.m_iHeight, dScale));
    }
    const CPicture aPicture(iWidth, iHeight + s_iTitle + 2 * s_iGap);
    double dX = s_iGap;
    for (const View& rView : aViews)
    {
        DrawView(aPicture, rView, aGrey, dX, s_iGap + s_iTitle, dScale);
        dX += std::max(iLeastWide, Scaled(rView.m_iWidth, dScale)) + s_iGap;
    }
    return aPicture.Write(strPath, rError);
}

}  // namespace talven
