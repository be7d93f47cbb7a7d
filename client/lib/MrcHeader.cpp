#include "talven/MrcHeader.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

namespace talven
{
namespace
{

// Positions of the header's fields: number of the 4-byte word, from 0.
enum EWord
{
    NX = 0,
    NY = 1,
    NZ = 2,
    MODE = 3,
    MX = 7,
    CELL_A = 10,
    CELL_ALPHA = 13,
    MAPC = 16,
    DMIN = 19,
    DMAX = 20,
    DMEAN = 21,
    ISPG = 22,
    NSYMBT = 23,
    NVERSION = 27,
    BYTE_STAMP = 38,  // in the "extra" area
    BYTE_FLAGS = 39,
    MAP = 52,
    MACHST = 53,
    RMS = 54,
    NLABL = 55,
    LABEL = 56
};

// A program that writes unsigned bytes in mode 0 says so with this number and a cleared bit 0 in
// the flags after it; without the number bytes are signed, as the standard has it.
constexpr std::uint32_t g_uiByteStamp = 1146047817;
constexpr int g_iMaxExtent = 1 << 24;

class CWords
{
public:
    CWords(std::span<const std::byte, MrcHeader::g_tBytes> pBytes, bool bSwap) : m_bSwap(bSwap)
    {
        std::memcpy(m_auiWords.data(), pBytes.data(), MrcHeader::g_tBytes);
    }
    std::uint32_t Get(int iWord) const
    {
        const std::uint32_t uiWord = m_auiWords[static_cast<std::size_t>(iWord)];
        return m_bSwap ? __builtin_bswap32(uiWord) : uiWord;
    }
    int GetInt(int iWord) const { return static_cast<int>(Get(iWord)); }
    float GetFloat(int iWord) const { return std::bit_cast<float>(Get(iWord)); }

    /// Whether the numbers make sense read in this byte order.
    bool IsPlausible() const
    {
        for (const int iWord : {NX, NY, NZ})
            if (GetInt(iWord) < 1 || GetInt(iWord) > g_iMaxExtent) return false;
        if (GetInt(MODE) < 0 || GetInt(MODE) > 101 || GetInt(NSYMBT) < 0) return false;
        for (int i = 0; i < 3; ++i)
            if (GetInt(MAPC + i) < 0 || GetInt(MAPC + i) > 3) return false;
        return true;
    }

private:
    std::array<std::uint32_t, MrcHeader::g_tBytes / 4> m_auiWords;
    bool m_bSwap;
};

bool SetMode(int iMode, MrcHeader& rHeader, std::string& rError)
{
    switch (iMode)
    {
    case 0:
    case 1:
    case 2:
    case 6:
    case 12:
        rHeader.eMode = static_cast<EMrcMode>(iMode);
        return true;
    default:
        rError = "MRC mode " + std::to_string(iMode) + " is not supported (0, 1, 2, 6, 12 are)";
        return false;
    }
}

}  // namespace

int MrcHeader::GetPixelBytes() const
{
    switch (eMode)
    {
    case EMrcMode::eInt8:
        return 1;
    case EMrcMode::eInt16:
    case EMrcMode::eUint16:
    case EMrcMode::eFloat16:
        return 2;
    case EMrcMode::eFloat32:
        return 4;
    }
    return 4;
}

std::optional<MrcHeader> MrcHeader::Parse(std::span<const std::byte, g_tBytes> pBytes,
                                          std::string& rError)
{
    // The machine stamp is missing or wrong in many files: it decides only where both readings make
    // sense, which takes sizes like 65536 in all three directions.
    const std::byte ucStamp = pBytes[4 * MACHST];
    const bool bLittleHere = std::endian::native == std::endian::little;
    const bool bStampSwaps = ucStamp == (bLittleHere ? std::byte{0x11} : std::byte{0x44});
    CWords aWords(pBytes, bStampSwaps);
    bool bSwap = bStampSwaps;
    if (!aWords.IsPlausible())
    {
        bSwap = !bStampSwaps;
        aWords = CWords(pBytes, bSwap);
        if (!aWords.IsPlausible())
        {
            rError = "not an MRC file";
            return std::nullopt;
        }
    }

    MrcHeader aHeader;
    aHeader.bSwap = bSwap;
    aHeader.iX = aWords.GetInt(NX);
    aHeader.iY = aWords.GetInt(NY);
    aHeader.iZ = aWords.GetInt(NZ);
    if (!SetMode(aWords.GetInt(MODE), aHeader, rError)) return std::nullopt;
    aHeader.bUnsigned =
        aWords.Get(BYTE_STAMP) == g_uiByteStamp && (aWords.Get(BYTE_FLAGS) & 1) == 0;
    aHeader.bVolume = aWords.GetInt(ISPG) == 1;
    aHeader.ulExtended = aWords.Get(NSYMBT);
    const double dCell = aWords.GetFloat(CELL_A);
    const int iMx = aWords.GetInt(MX);
    if (iMx > 0 && std::isfinite(dCell) && dCell > 0) aHeader.dPixel = dCell / iMx;
    aHeader.fMin = aWords.GetFloat(DMIN);
    aHeader.fMax = aWords.GetFloat(DMAX);
    aHeader.fMean = aWords.GetFloat(DMEAN);
    aHeader.fRms = aWords.GetFloat(RMS);
    return aHeader;
}

std::array<std::byte, MrcHeader::g_tBytes> MrcHeader::Format() const
{
    std::array<std::byte, g_tBytes> aBytes{};
    const auto SetInt = [&aBytes](int iWord, int iValue)
    { std::memcpy(aBytes.data() + 4 * iWord, &iValue, 4); };
    const auto SetFloat = [&aBytes](int iWord, float fValue)
    { std::memcpy(aBytes.data() + 4 * iWord, &fValue, 4); };

    const int aiSize[3] = {iX, iY, iZ};
    for (int i = 0; i < 3; ++i)
    {
        SetInt(NX + i, aiSize[i]);
        SetInt(MX + i, aiSize[i]);
        SetFloat(CELL_A + i, static_cast<float>(aiSize[i] * dPixel));
        SetFloat(CELL_ALPHA + i, 90.0f);
        SetInt(MAPC + i, i + 1);
    }
    SetInt(MODE, static_cast<int>(eMode));
    SetFloat(DMIN, fMin);
    SetFloat(DMAX, fMax);
    SetFloat(DMEAN, fMean);
    SetFloat(RMS, fRms);
    SetInt(ISPG, bVolume ? 1 : 0);
    SetInt(NVERSION, 20140);
    std::memcpy(aBytes.data() + 4 * MAP, "MAP ", 4);
    const bool bLittleHere = std::endian::native == std::endian::little;
    const unsigned char acStamp[4] = {static_cast<unsigned char>(bLittleHere ? 0x44 : 0x11),
                                      static_cast<unsigned char>(bLittleHere ? 0x44 : 0x11), 0, 0};
    std::memcpy(aBytes.data() + 4 * MACHST, acStamp, 4);
    if (!strLabel.empty())
    {
        SetInt(NLABL, 1);
        std::memset(aBytes.data() + 4 * LABEL, ' ', 80);
        std::memcpy(aBytes.data() + 4 * LABEL, strLabel.data(),
                    std::min<std::size_t>(strLabel.size(), 80));
    }
    return aBytes;
}

}  // namespace talven
