#pragma once

#include <span>
#include <string>

#include "Picture.h"
#include "talven/Slices.h"

namespace talven
{

/// Black at one value, white at another, both ends cut.
struct GreyScale
{
    float fBlack = 0, fWhite = 1;

    /// From the percentiles given of all slices together; missing pixels (below -1e15) do not
    /// count.
    static GreyScale Find(std::span<const Slice> aSlices, double dBlackPercent,
                          double dWhitePercent);
    std::uint32_t GetPixel(float fValue) const;
};

/// Extent of an image in a picture.
int ScaledExtent(int iPixels, double dScale);

constexpr int g_iTitleHeight = 24;  ///< of the line above a slice
constexpr int g_iGap = 14;          ///< between slices and around them

/// Draws a slice, row 0 at the bottom, with its upper left corner at (dX, dY), and its title above.
void DrawSlice(const CPicture& rPicture, const Slice& rSlice, const GreyScale& rGrey, double dX,
               double dY, double dScale, const std::string& strTitle);

}  // namespace talven
