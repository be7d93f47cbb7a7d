#pragma once

#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <random>
#include <span>
#include <vector>

/// Where the decisions of a session come from: bytes that a seed or a fuzzer makes. The same bytes
/// give the same session with any library.
class CChoices
{
public:
    explicit CChoices(std::span<const std::uint8_t> ucBytes) : m_ucBytes(ucBytes) {}

    /// True when the bytes are used up: all that is drawn then is the first of its range.
    bool IsOver() const { return m_ucBytes.empty(); }

    /// Both ends included.
    int Int(int iFirst, int iLast)
    {
        return iFirst + static_cast<int>(mDraw(static_cast<unsigned>(iLast - iFirst) + 1));
    }
    std::uint32_t Word() { return static_cast<std::uint32_t>(mDraw(std::uint64_t{1} << 32)); }
    float Real(float fFirst, float fEnd)
    {
        return fFirst + (fEnd - fFirst) * static_cast<float>(mDraw(1 << 16)) * 0x1p-16f;
    }
    /// Every order of magnitude is as likely.
    int Magnitude(int iFirst, int iLast)
    {
        return static_cast<int>(
            std::exp(Real(std::log(static_cast<float>(iFirst)), std::log(iLast + 0.5f))));
    }
    bool Chance(int iPercent) { return Int(0, 99) >= 100 - iPercent; }
    template <class T>
    T Pick(std::initializer_list<T> aValues)
    {
        return aValues.begin()[Int(0, static_cast<int>(aValues.size()) - 1)];
    }
    /// Noise that a few bytes decide.
    std::vector<float> Reals(std::size_t tCount, float fFirst, float fEnd)
    {
        std::minstd_rand aNoise(static_cast<std::uint32_t>(mDraw(1 << 16)) + 1);
        std::vector<float> vf(tCount);
        for (float& rfValue : vf)
            rfValue = fFirst + (fEnd - fFirst) * static_cast<float>(aNoise() >> 8) * 0x1p-23f;
        return vf;
    }

private:
    std::uint64_t mDraw(std::uint64_t ulBelow)
    {
        std::uint64_t ulValue = 0;
        for (std::uint64_t ulLeft = ulBelow - 1; ulLeft > 0 && !m_ucBytes.empty(); ulLeft >>= 8)
        {
            ulValue = ulValue << 8 | m_ucBytes.front();
            m_ucBytes = m_ucBytes.subspan(1);
        }
        return ulValue % ulBelow;
    }

    std::span<const std::uint8_t> m_ucBytes;
};
