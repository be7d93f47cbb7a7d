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
    INT8 = 0,
    INT16 = 1,
    FLOAT32 = 2,
    UINT16 = 6,
    FLOAT16 = 12
};

/// What this library uses of the header of an MRC file.
struct MrcHeader
{
    static constexpr std::size_t s_tBytes = 1024;

    int m_iX = 0, m_iY = 0, m_iZ = 0;  ///< columns, rows, sections
    EMrcMode m_eMode = EMrcMode::FLOAT32;
    bool m_bSwap = false;            ///< the file's byte order is not this machine's
    bool m_bUnsigned = false;        ///< bytes of mode 0 are unsigned
    bool m_bVolume = false;          ///< space group 1: a volume; 0: a stack of images
    std::uint64_t m_ulExtended = 0;  ///< bytes of the extended header
    double m_dPixel = 0;             ///< Angstrom per pixel along X, 0: not stated
    float m_fMin = 0, m_fMax = 0, m_fMean = 0, m_fRms = 0;
    std::string m_strLabel;  ///< the first label when written

    std::uint64_t GetSectionPixels() const { return std::uint64_t(m_iX) * std::uint64_t(m_iY); }
    std::uint64_t GetDataOffset() const { return s_tBytes + m_ulExtended; }
    int GetPixelBytes() const;

    /// \return nullopt when these are not the first bytes of an MRC file, or of one whose pixels
    ///         cannot be read; rError then says which, without naming the file.
    static std::optional<MrcHeader> Parse(std::span<const std::byte, s_tBytes> pBytes,
                                          std::string& rError);
    /// The 1024 bytes, in this machine's byte order.
    std::array<std::byte, s_tBytes> Format() const;
};

}  // namespace talven
