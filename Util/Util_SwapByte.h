#pragma once

#include <bit>
#include <cstdint>

/// Values with their bytes reversed.
class Util_SwapByte
{
public:
    static short DoIt(short sVal) { return mSwap<std::uint16_t>(sVal); }
    static unsigned short DoIt(unsigned short usVal) { return mSwap<std::uint16_t>(usVal); }
    static int DoIt(int iVal) { return mSwap<std::uint32_t>(iVal); }
    static unsigned int DoIt(unsigned int uiVal) { return mSwap<std::uint32_t>(uiVal); }
    static float DoIt(float fVal) { return mSwap<std::uint32_t>(fVal); }
    static double DoIt(double dVal) { return mSwap<std::uint64_t>(dVal); }

private:
    template <class Bits, class T>
    static T mSwap(T tVal)
    {
        Bits tBits = std::bit_cast<Bits>(tVal), tSwapped = 0;
        for (unsigned int i = 0; i < sizeof(Bits); ++i)
        {
            tSwapped = static_cast<Bits>((tSwapped << 8) | (tBits & 0xff));
            tBits = static_cast<Bits>(tBits >> 8);
        }
        return std::bit_cast<T>(tSwapped);
    }
};
