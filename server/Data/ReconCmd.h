#pragma once

#include <cstdint>

/// Names of the reconstruction methods.
class CReconCmd
{
public:
    static constexpr std::uint32_t SART = 1;
    static constexpr std::uint32_t REPROJ = 2;
    static constexpr std::uint32_t BACKPROJ = 3;
    static constexpr std::uint32_t EM = 4;
    static constexpr std::uint32_t INVALID = 10001;

    static bool IsValid(std::uint32_t uiCmd) { return uiCmd >= SART && uiCmd <= EM; }
};
