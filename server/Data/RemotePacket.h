#pragma once

#include <bit>
#include <cstdint>
#include <span>
#include <vector>

#include "server/Data/RemoteData.h"
#include "server/Data/RemoteHdr.h"

/// One packet of the wire protocol: header and data block. Main thread only.
class CRemotePacket
{
public:
    /// How many data bytes a request can use, given its header.
    using DataCeiling = std::uint32_t (*)(const CRemotePacket& rPacket);

    /// Receives a whole packet. A data block that is longer than the ceiling, or for which there is
    /// no memory, is read and dropped: GetDataBytes() is then 0 while GetOptSize() is not.
    /// \return false when the connection failed
    bool RecvFromClient(DataCeiling pfnCeiling);
    /// Sends header and data. INVALID: nothing is sent, false; NORESPONSE: nothing is sent, true.
    /// The header stays in the client's byte order afterwards.
    bool SendToClient();

    std::uint32_t GetMsgType() const { return m_aHdr.GetNthField(0); }
    std::uint32_t GetSerial() const { return m_aHdr.GetNthField(1); }
    bool IsPart() const { return m_aHdr.GetNthField(2) == 1; }
    std::uint32_t GetOptSize() const { return m_aHdr.GetNthField(3); }  ///< as the sender says
    std::uint32_t GetParentSerial() const { return m_aHdr.GetNthField(4); }
    void SetMsgType(std::uint32_t uiType) { m_aHdr.SetNthField(0, uiType); }
    void SetSerial(std::uint32_t uiSerial) { m_aHdr.SetNthField(1, uiSerial); }
    void SetPart(bool bPart) { m_aHdr.SetNthField(2, bPart ? 1 : 0); }
    void SetParentSerial(std::uint32_t uiSerial) { m_aHdr.SetNthField(4, uiSerial); }

    /// Header fields by index; outside 0 to 15 they read as 0 and are not written.
    std::uint32_t GetNthField(int n) const { return m_aHdr.GetNthField(n); }
    float GetNthFieldF(int n) const { return std::bit_cast<float>(GetNthField(n)); }
    void SetNthField(int n, std::uint32_t uiVal) { m_aHdr.SetNthField(n, uiVal); }
    void SetNthFieldF(int n, float fVal) { SetNthField(n, std::bit_cast<std::uint32_t>(fVal)); }

    std::uint16_t GetRspMsg() const { return m_aHdr.GetRspMsgType(); }
    static constexpr std::uint32_t GetMaxBytes() { return 4194304; }  ///< intended, not enforced

    std::uint32_t GetDataBytes() const { return m_aData.GetOptSize(); }  ///< bytes that are there
    /// Copies of [uiOffset, uiOffset + uiBytes), cut where the data ends; units of 2 or 4 bytes in
    /// host order.
    std::vector<std::byte> GetData1(std::uint32_t uiOffset, std::uint32_t uiBytes) const;
    std::vector<std::byte> GetData2(std::uint32_t uiOffset, std::uint32_t uiBytes) const;
    std::vector<std::byte> GetData4(std::uint32_t uiOffset, std::uint32_t uiBytes) const;
    /// Fills aDest from uiOffset on, in host order. \return false, and nothing is copied, when the
    /// data ends before that
    template <class T>
    [[nodiscard]] bool CopyData4(std::uint32_t uiOffset, std::span<T> aDest) const
    {
        static_assert(sizeof(T) == 4);
        return mCopyData4(uiOffset, aDest.data(), aDest.size_bytes());
    }

    /// Makes header field 3 and the block uiBytes long, zero-filled; false without the memory.
    [[nodiscard]] bool SetOptSize(std::uint32_t uiBytes);
    void ClearData();
    /// Fill a part of the block, in the client's order; what lies beyond its end is left out.
    void SetData1(std::uint32_t uiOffset, const void* pvSource, std::uint32_t uiBytes);
    void SetData2(std::uint32_t uiOffset, const void* pvSource, std::uint32_t uiBytes);
    void SetData4(std::uint32_t uiOffset, const void* pvSource, std::uint32_t uiBytes);
    /// The whole block from 4-byte values, without a copy when the client has our byte order; then
    /// they must stay until the packet is sent. \return false without the memory
    [[nodiscard]] bool SetWholeData4(const void* pvSource, std::uint32_t uiBytes);

private:
    bool mRecvData(std::uint32_t uiBytes, std::uint32_t uiCeiling);
    std::uint32_t mClip(std::uint32_t uiOffset, std::uint32_t uiBytes) const;
    bool mCopyData4(std::uint32_t uiOffset, void* pvDest, std::size_t tBytes) const;

    CRemoteHdr m_aHdr;
    CRemoteData m_aData;
};
