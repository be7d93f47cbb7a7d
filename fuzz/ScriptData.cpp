#include "fuzz/ScriptData.h"

#include <array>
#include <bit>
#include <limits>

namespace
{
constexpr std::uint32_t Bits(float fValue)
{
    return std::bit_cast<std::uint32_t>(fValue);
}

constexpr float g_fInfinity = std::numeric_limits<float>::infinity();
constexpr float g_fNan = std::numeric_limits<float>::quiet_NaN();
constexpr std::array<std::uint32_t, 16> g_auiIntegers = {
    0x1234ABCD, 0xCDAB3412, 0xFFFFFFFF, 0x80000000, 0x7FFFFFFF, 0x10000, 0xFFFF, 0x8000,
    0x7FFF,     0x40000000, 0x20000000, 0x800000,   0x7FFFFF,   1000,    4096,   256};
constexpr std::array<float, 34> g_afFloats = {
    0.0f,   -0.0f,  1.0f,   -1.0f, 0.5f,   -0.5f,       0.25f,       2.0f,  -2.0f,
    3.0f,   -3.0f,  7.5f,   -7.5f, 16.0f,  -16.0f,      0.1f,        1e-3f, 1e-6f,
    1e6f,   -1e6f,  2.1e9f, -3e9f, 1e15f,  -2e15f,      -1e30f,      3e38f, -3e38f,
    1e-40f, 1e-38f, 0.99f,  1.01f, g_fNan, g_fInfinity, -g_fInfinity};
constexpr std::uint8_t g_uiIntegers = 200, g_uiFloats = g_uiIntegers + g_auiIntegers.size(),
                       g_uiSmallFloat = g_uiFloats + g_afFloats.size(),
                       g_uiTwoBytes = g_uiSmallFloat + 1, g_uiFourBytes = g_uiTwoBytes + 2;
}  // namespace

std::uint8_t CInput::GetByte()
{
    if (m_aBytes.empty()) return 0;
    const std::uint8_t uiByte = m_aBytes.front();
    m_aBytes = m_aBytes.subspan(1);
    return uiByte;
}

std::uint32_t CInput::GetWord(int iBytes)
{
    std::uint32_t uiWord = 0;
    for (int i = 0; i < iBytes; ++i) uiWord |= std::uint32_t{GetByte()} << (8 * i);
    return uiWord;
}

std::uint32_t CInput::GetField()
{
    const std::uint8_t uiCode = GetByte();
    if (uiCode < g_uiIntegers) return uiCode;
    if (uiCode < g_uiFloats) return g_auiIntegers[std::size_t(uiCode - g_uiIntegers)];
    if (uiCode < g_uiSmallFloat) return Bits(g_afFloats[std::size_t(uiCode - g_uiFloats)]);
    if (uiCode < g_uiTwoBytes) return Bits(static_cast<std::int8_t>(GetByte()) / 16.0f);
    return GetWord(uiCode < g_uiFourBytes ? 2 : 4);
}

namespace
{
/// A number in [0, 16), the same at every run.
float Noise(std::uint32_t& rState)
{
    rState = rState * 1664525 + 1013904223;
    return static_cast<float>(rState >> 8) / (1 << 20);
}

void Ramp(CInput& rInput, std::span<std::uint32_t> aWords)
{
    const auto iFirst = static_cast<std::int8_t>(rInput.GetByte());
    const auto iStep = static_cast<std::int8_t>(rInput.GetByte());
    for (std::size_t i = 0; i < aWords.size(); ++i)
        aWords[i] = Bits(float(iFirst) + float(iStep) / 8 * float(i));
}

void NoiseWithHoles(CInput& rInput, std::span<std::uint32_t> aWords, bool bHoles)
{
    constexpr std::array<float, 8> afHoles = {-1e30f, g_fNan, g_fInfinity, -g_fInfinity,
                                              3e38f,  1e-40f, -0.0f,       -1e15f};
    const std::uint8_t uiSeed = rInput.GetByte(), uiHole = bHoles ? rInput.GetByte() : 0;
    std::uint32_t uiState = uiSeed;
    for (std::size_t i = 0; i < aWords.size(); ++i)
        aWords[i] =
            Bits(bHoles && i % (1 + uiHole / 8) == 0 ? afHoles[uiHole % 8] : Noise(uiState));
}

void Count(CInput& rInput, std::span<std::uint32_t> aWords)
{
    std::uint32_t uiNext = rInput.GetByte();
    const std::uint32_t uiStep = rInput.GetByte();
    for (std::uint32_t& rWord : aWords)
    {
        rWord = uiNext;
        uiNext += uiStep;
    }
}

void Repeat(CInput& rInput, std::span<std::uint32_t> aWords)
{
    const std::size_t tBytes = std::size_t{1} + rInput.GetByte() % 64;
    std::vector<std::uint32_t> vuiBytes(tBytes);
    for (std::uint32_t& rByte : vuiBytes) rByte = rInput.GetByte();
    for (std::size_t i = 0; i < 4 * aWords.size(); ++i)
        aWords[i / 4] |= vuiBytes[i % tBytes] << (8 * (i % 4));
}
}  // namespace

std::vector<std::uint32_t> MakeWords(CInput& rInput, std::uint8_t uiKind, std::size_t tWords,
                                     std::size_t tHead)
{
    std::vector<std::uint32_t> vuiWords(tWords);
    const std::span<std::uint32_t> aWords = vuiWords;
    switch (uiKind % 8)
    {
    case 0:
        break;
    case 1:
        Ramp(rInput, aWords);
        break;
    case 2:
        NoiseWithHoles(rInput, aWords, false);
        break;
    case 3:
        Count(rInput, aWords);
        break;
    case 4:
        Count(rInput, aWords.first(std::min(tHead, tWords)));
        Ramp(rInput, aWords.subspan(std::min(tHead, tWords)));
        break;
    case 5:
        NoiseWithHoles(rInput, aWords, true);
        break;
    default:
        Repeat(rInput, aWords);
        break;
    }
    return vuiWords;
}
