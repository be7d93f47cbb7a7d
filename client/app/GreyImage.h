#pragma once

#include <span>
#include <string>

#include "Picture.h"

namespace talven
{

/// An image whose row 0 is its lowest, shape [iHeight][iWidth]; borrowed pixels.
struct GreyImage
{
    int iWidth, iHeight;
    std::span<const float> fPixels;
};

/// Black at one value, white at another, both ends cut.
struct GreyScale
{
    float fBlack = 0, fWhite = 1;

    /// From the percentiles given of all images together; missing pixels (below -1e15) do not
    /// count.
    static GreyScale Find(std::span<const GreyImage> aImages, double dBlackPercent,
                          double dWhitePercent);
    std::uint32_t GetPixel(float fValue) const;
};

/// Extent of an image in a picture.
int ScaledExtent(int iPixels, double dScale);

constexpr int g_iTitleHeight = 24;  ///< of the line above an image

/// Draws the image with its upper left corner at (dX, dY), and its title above.
void DrawGreyImage(const CPicture& rPicture, const GreyImage& rImage, const GreyScale& rGrey,
                   double dX, double dY, double dScale, const std::string& strTitle);

}  // namespace talven
