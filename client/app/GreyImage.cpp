#include "GreyImage.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "Alignment.h"

namespace talven
{

GreyScale GreyScale::Find(std::span<const GreyImage> aImages, double dBlackPercent,
                          double dWhitePercent)
{
    std::vector<float> vfAll;
    for (const GreyImage& rImage : aImages)
        for (const float fPixel : rImage.fPixels)
            if (std::isfinite(fPixel) && !IsMissing(fPixel)) vfAll.push_back(fPixel);
    const auto GetPercentile = [&vfAll](double dPercent)
    {
        if (vfAll.empty()) return 0.0f;
        const auto pNth =
            vfAll.begin() + static_cast<std::ptrdiff_t>(dPercent / 100 * double(vfAll.size() - 1));
        std::nth_element(vfAll.begin(), pNth, vfAll.end());
        return *pNth;
    };
    const float fBlack = GetPercentile(dBlackPercent);
    const float fWhite = GetPercentile(dWhitePercent);
    return {fBlack, fWhite > fBlack ? fWhite : fBlack + 1};
}

std::uint32_t GreyScale::GetPixel(float fValue) const
{
    const float fGrey =
        std::clamp((fValue - fBlack) / (fWhite - fBlack), 0.0f, 1.0f) * 255.0f + 0.5f;
    return static_cast<std::uint32_t>(fGrey) * 0x010101u;
}

int ScaledExtent(int iPixels, double dScale)
{
    return std::max(1, static_cast<int>(iPixels * dScale));
}

void DrawGreyImage(const CPicture& rPicture, const GreyImage& rImage, const GreyScale& rGrey,
                   double dX, double dY, double dScale, const std::string& strTitle)
{
    const std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> pImage(
        cairo_image_surface_create(CAIRO_FORMAT_RGB24, rImage.iWidth, rImage.iHeight),
        &cairo_surface_destroy);
    unsigned char* pucImage = cairo_image_surface_get_data(pImage.get());
    if (pucImage == nullptr) return;  // cairo's limit of 32767 pixels
    const int iStride = cairo_image_surface_get_stride(pImage.get());
    for (int y = 0; y < rImage.iHeight; ++y)
    {
        auto* uiRow = reinterpret_cast<std::uint32_t*>(
            pucImage + std::ptrdiff_t(rImage.iHeight - 1 - y) * iStride);
        const auto fRow = rImage.fPixels.subspan(std::size_t(y) * std::size_t(rImage.iWidth),
                                                 std::size_t(rImage.iWidth));
        for (std::size_t x = 0; x < fRow.size(); ++x) uiRow[x] = rGrey.GetPixel(fRow[x]);
    }
    cairo_surface_mark_dirty(pImage.get());

    cairo_t* pContext = rPicture.GetContext();
    const int iWidth = ScaledExtent(rImage.iWidth, dScale);
    const int iHeight = ScaledExtent(rImage.iHeight, dScale);
    cairo_save(pContext);
    cairo_translate(pContext, dX, dY);
    cairo_rectangle(pContext, 0, 0, iWidth, iHeight);
    cairo_clip(pContext);
    cairo_scale(pContext, double(iWidth) / rImage.iWidth, double(iHeight) / rImage.iHeight);
    cairo_set_source_surface(pContext, pImage.get(), 0, 0);
    cairo_pattern_set_filter(cairo_get_source(pContext),
                             dScale >= 1 ? CAIRO_FILTER_NEAREST : CAIRO_FILTER_GOOD);
    cairo_paint(pContext);
    cairo_restore(pContext);

    cairo_set_source_rgb(pContext, 0, 0, 0);
    rPicture.DrawText(dX, dY - 5, strTitle, 13, {0, 1});
}

}  // namespace talven
