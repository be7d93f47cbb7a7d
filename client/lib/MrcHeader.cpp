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
    eWordNx = 0,
    eWordNy = 1,
    eWordNz = 2,
    eWordMode = 3,
    eWordMx = 7,
    eWordCellA = 10,
    eWordCellAlpha = 13,
    eWordMapc = 16,
    eWordDmin = 19,
    eWordDmax = 20,
    eWordDmean = 21,
    eWordIspg = 22,
    eWordNsymbt = 23,
    eWordNversion = 27,
    eWordByteStamp = 38,  // in the "extra" area
    eWordByteFlags = 39,
    eWordMap = 52,
    eWordMachst = 53,
    eWordRms = 54,
    eWordNlabl = 55,
    eWordLabel = 56
};

// A program that writes unsigned bytes in mode 0 says so with this number and a cleared bit 0 in
// the flags after it; without the number bytes are signed, as the standard has it.
constexpr std::uint32_t g_uiByteStamp = 1146047817;
constexpr int g_iMaxExtent = 1 << 24;

class CWords
{
public:
    CWords(std::span<const std::byte, MrcHeader::tBytes> pBytes, bool bSwap) : m_bSwap(bSwap)
    {
        std::memcpy(m_auiWords.data(), pBytes.data(), MrcHeader::tBytes);
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
        for (const int iWord : {eWordNx, eWordNy, eWordNz})
            if (GetInt(iWord) < 1 || GetInt(iWord) > g_iMaxExtent) return false;
        if (GetInt(eWordMode) < 0 || GetInt(eWordMode) > 101 || GetInt(eWordNsymbt) < 0)
            return false;
        for (int i = 0; i < 3; ++i)
            if (GetInt(eWordMapc + i) < 0 || GetInt(eWordMapc + i) > 3) return false;
        return true;
    }

private:
    std::array<std::uint32_t, MrcHeader::tBytes / 4> m_auiWords;
    bool m_bSwap;
};

bool SetMode(int iMode, MrcHeader& rHeader, std::string& rError)
{
    rHeader.eMode = static_cast<EMrcMode>(iMode);
    if (rHeader.GetPixelBytes() > 0) return true;
    rError = "MRC mode " + std::to_string(iMode) + " is not supported (0, 1, 2, 6, 12 are)";
    return false;
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
    return 0;
}

std::optional<MrcHeader> MrcHeader::Parse(std::span<const std::byte, tBytes> pBytes,
                                          std::string& rError)
{
    // The machine stamp is missing or wrong in many files: it decides only where both readings make
    // sense, which takes sizes like 65536 in all three directions.
    const std::byte ucStamp = pBytes[4 * eWordMachst];
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
    aHeader.iX = aWords.GetInt(eWordNx);
    aHeader.iY = aWords.GetInt(eWordNy);
    aHeader.iZ = aWords.GetInt(eWordNz);
    if (!SetMode(aWords.GetInt(eWordMode), aHeader, rError)) return std::nullopt;
    aHeader.bUnsigned =
        aWords.Get(eWordByteStamp) == g_uiByteStamp && (aWords.Get(eWordByteFlags) & 1) == 0;
    aHeader.bVolume = aWords.GetInt(eWordIspg) == 1;
    aHeader.ulExtended = aWords.Get(eWordNsymbt);
    const double dCell = aWords.GetFloat(eWordCellA);
    const int iMx = aWords.GetInt(eWordMx);
    if (iMx > 0 && std::isfinite(dCell) && dCell > 0) aHeader.dPixel = dCell / iMx;
    aHeader.fMin = aWords.GetFloat(eWordDmin);
    aHeader.fMax = aWords.GetFloat(eWordDmax);
    aHeader.fMean = aWords.GetFloat(eWordDmean);
    aHeader.fRms = aWords.GetFloat(eWordRms);
    return aHeader;
}

std::array<std::byte, MrcHeader::tBytes> MrcHeader::Format() const
{
    std::array<std::byte, tBytes> aBytes{};
    const auto SetInt = [&aBytes](int iWord, int iValue)
    { std::memcpy(aBytes.data() + 4 * iWord, &iValue, 4); };
    const auto SetFloat = [&aBytes](int iWord, float fValue)
    { std::memcpy(aBytes.data() + 4 * iWord, &fValue, 4); };

    const int aiSize[3] = {iX, iY, iZ};
    for (int i = 0; i < 3; ++i)
    {
        SetInt(eWordNx + i, aiSize[i]);
        SetInt(eWordMx + i, aiSize[i]);
        SetFloat(eWordCellA + i, static_cast<float>(aiSize[i] * dPixel));
        SetFloat(eWordCellAlpha + i, 90.0f);
        SetInt(eWordMapc + i, i + 1);
    }
    SetInt(eWordMode, static_cast<int>(eMode));
    SetFloat(eWordDmin, fMin);
    SetFloat(eWordDmax, fMax);
    SetFloat(eWordDmean, fMean);
    SetFloat(eWordRms, fRms);
    SetInt(eWordIspg, bVolume ? 1 : 0);
    SetInt(eWordNversion, 20140);
    std::memcpy(aBytes.data() + 4 * eWordMap, "MAP ", 4);
    const bool bLittleHere = std::endian::native == std::endian::little;
    const unsigned char acStamp[4] = {static_cast<unsigned char>(bLittleHere ? 0x44 : 0x11),
                                      static_cast<unsigned char>(bLittleHere ? 0x44 : 0x11), 0, 0};
    std::memcpy(aBytes.data() + 4 * eWordMachst, acStamp, 4);
    if (!strLabel.empty())
    {
        SetInt(eWordNlabl, 1);
        std::memset(aBytes.data() + 4 * eWordLabel, ' ', 80);
        std::memcpy(aBytes.data() + 4 * eWordLabel, strLabel.data(),
                    std::min<std::size_t>(strLabel.size(), 80));
    }
    return aBytes;
}

}  // namespace talven
