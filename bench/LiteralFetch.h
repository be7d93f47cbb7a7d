#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>

/// Bilinear read of an image, texel centres at whole numbers, clamped at the borders.
inline float LiteralFetch(const float* pfImage, int iWidth, int iHeight, float fX, float fY)
{
    const float fBaseX = std::floor(fX), fBaseY = std::floor(fY);
    const float fRight = fX - fBaseX, fDown = fY - fBaseY;
    const int iX0 = std::clamp(int(fBaseX), 0, iWidth - 1);
    const int iX1 = std::clamp(int(fBaseX) + 1, 0, iWidth - 1);
    const int iY0 = std::clamp(int(fBaseY), 0, iHeight - 1);
    const int iY1 = std::clamp(int(fBaseY) + 1, 0, iHeight - 1);
    const float* pfUpper = pfImage + std::size_t(iY0) * iWidth;
    const float* pfLower = pfImage + std::size_t(iY1) * iWidth;
    return (1 - fDown) * ((1 - fRight) * pfUpper[iX0] + fRight * pfUpper[iX1]) +
           fDown * ((1 - fRight) * pfLower[iX0] + fRight * pfLower[iX1]);
}
