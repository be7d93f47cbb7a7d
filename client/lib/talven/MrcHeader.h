#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace talven
{

/// How an MRC file stores a pixel.
enum class EMrcMode : int
{
    eInt8 = 0,
    eInt16 = 1,
    eFloat32 = 2,
    eUint16 = 6,
    eFloat16 = 12
};

/// What this library uses of the header of an MRC file.
struct MrcHeader
{
    static constexpr std::size_t m_tBytes = 1024;

    int iX = 0, iY = 0, iZ = 0;  ///< columns, rows, sections
    EMrcMode eMode = EMrcMode::eFloat32;
    bool bSwap = false;            ///< the file's byte order is not this machine's
    bool bUnsigned = false;        ///< bytes of mode 0 are unsigned
    bool bVolume = false;          ///< space group 1: a volume; 0: a stack of images
    std::uint64_t ulExtended = 0;  ///< bytes of the extended header
    double dPixel = 0;             ///< Angstrom per pixel along X, 0: not stated
    float fMin = 0, fMax = 0, fMean = 0, fRms = 0;
    std::string strLabel;  ///< when written: a label a line, at most 10 of 80 characters

    std::uint64_t GetSectionPixels() const { return std::uint64_t(iX) * std::uint64_t(iY); }
    std::uint64_t GetDataOffset() const { return m_tBytes + ulExtended; }
    int GetPixelBytes() const;  ///< 0: no mode that can be read

    /// \return nullopt when these are not the first bytes of an MRC file, or of one whose pixels
    ///         cannot be read; rError then says which, without naming the file.
    static std::optional<MrcHeader> Parse(std::span<const std::byte, m_tBytes> pBytes,
                                          std::string& rError);
    /// The 1024 bytes, in this machine's byte order.
    std::array<std::byte, m_tBytes> Format() const;
};

}  // namespace talven
