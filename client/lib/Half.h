#pragma once

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>

namespace talven
{

/// A 16-bit IEEE float as a float.
inline float HalfToFloat(std::uint16_t usHalf)
{
    const std::uint32_t uiSign = std::uint32_t(usHalf & 0x8000) << 16;
    const int iExponent = (usHalf >> 10) & 31;
    const std::uint32_t uiMantissa = usHalf & 0x3FF;
    if (iExponent == 0)  // zero and denormals: mantissa * 2^-24
        return std::bit_cast<float>(
            std::bit_cast<std::uint32_t>(static_cast<float>(uiMantissa) * 0x1p-24f) | uiSign);
    const std::uint32_t uiExponent = iExponent == 31 ? 255 : std::uint32_t(iExponent - 15 + 127);
    return std::bit_cast<float>(uiSign | (uiExponent << 23) | (uiMantissa << 13));
}

/// The nearest half-precision number; even where two are as near, the largest for all beyond it.
inline std::uint16_t FloatToHalf(float fValue)
{
    const std::uint32_t uiSign = std::bit_cast<std::uint32_t>(fValue) >> 16 & 0x8000;
    const float fSize = std::min(std::fabs(fValue), 65504.0f);
    if (fSize < 0x1p-14f)  // denormal
        return static_cast<std::uint16_t>(uiSign | std::uint32_t(std::nearbyint(fSize * 0x1p24f)));
    std::uint32_t uiBits = std::bit_cast<std::uint32_t>(fSize);
    uiBits += 0xFFF + (uiBits >> 13 & 1);
    return static_cast<std::uint16_t>(uiSign | (uiBits - (112u << 23)) >> 13);
}

}  // namespace talven
