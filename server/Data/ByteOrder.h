#pragma once

#include <cstddef>
#include <cstdint>

#include "Util/Util_Singleton.h"

/// Whether the client's byte order differs from ours, and the swapping. Main thread only.
///
/// Nothing is swapped until the client has shown the test value.
class CByteOrder : public Util_Singleton<CByteOrder>
{
public:
    /// Compares the test value as received with ours and sets the swap flag.
    void Determine(std::uint32_t uiTestVal) { m_bSwapByte = uiTestVal != m_uiTestVal; }
    bool NeedsSwap() const { return m_bSwapByte; }

    // All do nothing while the flag is off. A remainder of less than a unit is left alone.
    void SwapTwo(void* pvData) const { SwapTwo(pvData, 2); }
    void SwapTwo(void* pvData, std::size_t tBytes) const;
    void SwapFour(void* pvData) const { SwapFour(pvData, 4); }
    void SwapFour(void* pvData, std::size_t tBytes) const;
    void Swap(void* pvData, std::size_t tBytes, int iMode) const;  ///< iMode: a CDataMode

private:
    bool m_bSwapByte = false;
    std::uint32_t m_uiTestVal = 0x1234ABCD;
};
