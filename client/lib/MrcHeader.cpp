#include "talven/MrcHeader.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <sstream>

#include "talven/Text.h"

namespace talven
{
namespace
{

// A program that writes unsigned bytes in mode 0 says so with this number and a cleared bit 0 in
// the flags after it; without the number bytes are signed, as the standard has it.
constexpr std::uint32_t g_uiByteStamp = 1146047817;
constexpr int g_iMaxExtent = 1 << 24;

class CWords
{
public:
    CWords(std::span<const std::byte, MrcHeader::m_tBytes> pBytes, bool bSwap) : m_bSwap(bSwap)
    {
        std::memcpy(m_auiWords.data(), pBytes.data(), MrcHeader::m_tBytes);
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
        for (const int iWord : {0, 1, 2})  // NX, NY, NZ
            if (GetInt(iWord) < 1 || GetInt(iWord) > g_iMaxExtent) return false;
        if (GetInt(3) < 0 || GetInt(3) > 101 || GetInt(23) < 0)  // MODE, NSYMBT
            return false;
        for (int i = 0; i < 3; ++i)
            if (GetInt(16 + i) < 0 || GetInt(16 + i) > 3) return false;  // MAPC
        return true;
    }

private:
    std::array<std::uint32_t, MrcHeader::m_tBytes / 4> m_auiWords;
    bool m_bSwap;
};

}  // namespace

int MrcHeader::GetPixelBytes() const
{
    if (eMode == EMrcMode::eInt8) return 1;
    if (eMode == EMrcMode::eFloat32) return 4;
    const bool bTwo = eMode == EMrcMode::eInt16 || eMode == EMrcMode::eUint16;
    return bTwo || eMode == EMrcMode::eFloat16 ? 2 : 0;
}

std::optional<MrcHeader> MrcHeader::Parse(std::span<const std::byte, m_tBytes> pBytes,
                                          std::string& rError)
{
    // The machine stamp is missing or wrong in many files: it decides only where both readings make
    // sense, which takes sizes like 65536 in all three directions.
    const std::byte ucStamp = pBytes[4 * 53];  // MACHST
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
    aHeader.iX = aWords.GetInt(0);                            // NX
    aHeader.iY = aWords.GetInt(1);                            // NY
    aHeader.iZ = aWords.GetInt(2);                            // NZ
    aHeader.eMode = static_cast<EMrcMode>(aWords.GetInt(3));  // MODE
    if (aHeader.GetPixelBytes() == 0)
    {
        rError =
            talven::Format("MRC mode %d is not supported (0, 1, 2, 6, 12 are)", aWords.GetInt(3));
        return std::nullopt;
    }
    aHeader.bUnsigned =
        aWords.Get(38) == g_uiByteStamp && (aWords.Get(39) & 1) == 0;  // BYTE_STAMP, BYTE_FLAGS
    aHeader.bVolume = aWords.GetInt(22) == 1;                          // ISPG
    aHeader.ulExtended = aWords.Get(23);                               // NSYMBT
    const double dCell = aWords.GetFloat(10);                          // CELL_A
    const int iMx = aWords.GetInt(7);                                  // MX
    if (iMx > 0 && std::isfinite(dCell) && dCell > 0) aHeader.dPixel = dCell / iMx;
    aHeader.fMin = aWords.GetFloat(19);   // DMIN
    aHeader.fMax = aWords.GetFloat(20);   // DMAX
    aHeader.fMean = aWords.GetFloat(21);  // DMEAN
    aHeader.fRms = aWords.GetFloat(54);   // RMS
    return aHeader;
}

std::array<std::byte, MrcHeader::m_tBytes> MrcHeader::Format() const
{
    std::array<std::byte, m_tBytes> aBytes{};
    const auto SetInt = [&aBytes](int iWord, int iValue)
    { std::memcpy(aBytes.data() + 4 * iWord, &iValue, 4); };
    const auto SetFloat = [&aBytes](int iWord, float fValue)
    { std::memcpy(aBytes.data() + 4 * iWord, &fValue, 4); };

    const int aiSize[3] = {iX, iY, iZ};
    for (int i = 0; i < 3; ++i)
    {
        SetInt(i, aiSize[i]);                                      // NX
        SetInt(7 + i, aiSize[i]);                                  // MX
        SetFloat(10 + i, static_cast<float>(aiSize[i] * dPixel));  // CELL_A
        SetFloat(13 + i, 90.0f);                                   // CELL_ALPHA
        SetInt(16 + i, i + 1);                                     // MAPC
    }
    SetInt(3, static_cast<int>(eMode));              // MODE
    SetFloat(19, fMin);                              // DMIN
    SetFloat(20, fMax);                              // DMAX
    SetFloat(21, fMean);                             // DMEAN
    SetFloat(54, fRms);                              // RMS
    SetInt(22, bVolume ? 1 : 0);                     // ISPG
    SetInt(27, 20140);                               // NVERSION
    std::memcpy(aBytes.data() + 4 * 52, "MAP ", 4);  // MAP
    const bool bLittleHere = std::endian::native == std::endian::little;
    std::memset(aBytes.data() + 4 * 53, bLittleHere ? 0x44 : 0x11, 2);  // MACHST
    std::istringstream aLabels(strLabel);
    std::string strLine;
    for (int i = 0; i < 10 && std::getline(aLabels, strLine); ++i)
    {
        strLine.resize(80, ' ');
        std::memcpy(aBytes.data() + 4 * 56 + 80 * i, strLine.data(), 80);  // LABEL
        SetInt(55, i + 1);                                                 // NLABL
    }
    return aBytes;
}

}  // namespace talven
