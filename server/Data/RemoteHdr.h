#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "server/Data/MsgConst.h"

/// Header of a packet: sixteen 32-bit fields, all 0 but the type, which starts as INVALID.
class CRemoteHdr
{
public:
    static constexpr int m_iFields = 16;

    CRemoteHdr() { m_auiVals[0] = CMsgConst::INVALID; }
    /// Field n; 0 for an index outside the header.
    std::uint32_t GetNthField(int n) const { return n >= 0 && n < m_iFields ? m_auiVals[n] : 0; }
    /// Does nothing for an index outside the header.
    void SetNthField(int n, std::uint32_t uiVal)
    {
        if (n >= 0 && n < m_iFields) m_auiVals[n] = uiVal;
    }
    void* GetBytes() { return m_auiVals.data(); }
    static constexpr std::size_t GetNumBytes() { return m_iFields * sizeof(std::uint32_t); }
    /// The type of the reply that the response builder makes for this request. Requests newer than
    /// VOLSIZE have none here, though the session answers them.
    std::uint16_t GetRspMsgType() const;

private:
    std::array<std::uint32_t, m_iFields> m_auiVals{};
};
