#include "GreyImage.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace talven
{

GreyScale GreyScale::Find(std::span<const Slice> aSlices, double dBlackPercent,
                          double dWhitePercent)
{
    const auto [fBlack, fWhite] = FindPercentiles(aSlices, dBlackPercent, dWhitePercent);
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

void DrawSlice(const CPicture& rPicture, const Slice& rSlice, const GreyScale& rGrey, double dX,
               double dY, double dScale, const std::string& strTitle)
{
    const std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> pImage(
        cairo_image_surface_create(CAIRO_FORMAT_RGB24, rSlice.iWidth, rSlice.iHeight),
        &cairo_surface_destroy);
    unsigned char* pucImage = cairo_image_surface_get_data(pImage.get());
    if (pucImage == nullptr) return;  // cairo's limit of 32767 pixels
    const int iStride = cairo_image_surface_get_stride(pImage.get());
    for (int y = 0; y < rSlice.iHeight; ++y)
    {
        auto* uiRow = reinterpret_cast<std::uint32_t*>(
            pucImage + std::ptrdiff_t(rSlice.iHeight - 1 - y) * iStride);
        const auto fRow =
            std::span(rSlice.vfPixels)
                .subspan(std::size_t(y) * std::size_t(rSlice.iWidth), std::size_t(rSlice.iWidth));
        for (std::size_t x = 0; x < fRow.size(); ++x) uiRow[x] = rGrey.GetPixel(fRow[x]);
    }
    cairo_surface_mark_dirty(pImage.get());

    cairo_t* pContext = rPicture.GetContext();
    const int iWidth = ScaledExtent(rSlice.iWidth, dScale);
    const int iHeight = ScaledExtent(rSlice.iHeight, dScale);
    cairo_save(pContext);
    cairo_translate(pContext, dX, dY);
    cairo_rectangle(pContext, 0, 0, iWidth, iHeight);
    cairo_clip(pContext);
    cairo_scale(pContext, double(iWidth) / rSlice.iWidth, double(iHeight) / rSlice.iHeight);
    cairo_set_source_surface(pContext, pImage.get(), 0, 0);
    cairo_pattern_set_filter(cairo_get_source(pContext),
                             dScale >= 1 ? CAIRO_FILTER_NEAREST : CAIRO_FILTER_GOOD);
    cairo_paint(pContext);
    cairo_restore(pContext);

    cairo_set_source_rgb(pContext, 0, 0, 0);
    rPicture.DrawText(dX, dY - 5, strTitle, 13, {0, 1});
}

}  // namespace talven
