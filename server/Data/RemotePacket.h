#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "server/Data/RemoteData.h"
#include "server/Data/RemoteHdr.h"

class CRequestPlan;

/// One packet of the wire protocol: a header of sixteen fields and a data block.
///
/// The accessors of the data know its length: what lies outside is never touched. Main thread only.
class CRemotePacket
{
public:
    // Receiving.
    [[nodiscard]] bool RecvHeader();
    /// Receives the data that the header announces. Only the first uiCeiling bytes are kept, the
    /// rest is read and dropped. Without memory all of it is dropped; HasLostData() tells then.
    [[nodiscard]] bool RecvData(std::uint32_t uiCeiling);
    /// Receives the data into what is planned for it: kept by the packet, or in our byte order by a
    /// holder; 1 to 3 bytes after the last whole word stay as they are.
    [[nodiscard]] bool RecvData(const CRequestPlan& rPlan);
    /// Header and data, with GetMaxBytes() as the ceiling.
    [[nodiscard]] bool RecvFromClient() { return RecvHeader() && RecvData(GetMaxBytes()); }
    bool HasLostData() const { return m_bLostData; }

    /// Sends header and data. INVALID is not sent and fails, NORESPONSE is not sent and succeeds.
    /// The header stays as it was sent: swapped when the client's byte order differs.
    [[nodiscard]] bool SendToClient();

    std::uint32_t GetMsgType() const { return m_aRemoteHdr.GetNthField(0); }
    void SetMsgType(std::uint32_t uiType) { m_aRemoteHdr.SetNthField(0, uiType); }
    std::uint32_t GetSerial() const { return m_aRemoteHdr.GetNthField(1); }
    void SetSerial(std::uint32_t uiSerial) { m_aRemoteHdr.SetNthField(1, uiSerial); }
    bool IsPart() const { return m_aRemoteHdr.GetNthField(2) == 1; }
    void SetPart(bool bPart) { m_aRemoteHdr.SetNthField(2, bPart ? 1 : 0); }
    /// The size of the data as the header says it; a received block may hold less (GetDataBytes).
    std::uint32_t GetOptSize() const { return m_aRemoteHdr.GetNthField(3); }
    /// Makes a block of zero bytes. \return false without memory: the size is 0 then
    bool SetOptSize(std::uint32_t uiBytes);
    std::uint32_t GetParentSerial() const { return m_aRemoteHdr.GetNthField(4); }
    void SetParentSerial(std::uint32_t uiSerial) { m_aRemoteHdr.SetNthField(4, uiSerial); }
    std::uint32_t GetNthField(int n) const { return m_aRemoteHdr.GetNthField(n); }
    void SetNthField(int n, std::uint32_t uiVal) { m_aRemoteHdr.SetNthField(n, uiVal); }
    float GetNthFieldF(int n) const { return std::bit_cast<float>(GetNthField(n)); }
    void SetNthFieldF(int n, float fVal) { SetNthField(n, std::bit_cast<std::uint32_t>(fVal)); }
    std::uint16_t GetRspMsg() const { return m_aRemoteHdr.GetRspMsgType(); }

    std::uint32_t GetDataBytes() const { return m_aRemoteData.GetOptSize(); }
    // Copies of uiBytes of the data in units of 1, 2 or 4 bytes, each in our byte order; empty when
    // the range does not lie inside the data.
    std::vector<std::byte> GetData1(std::uint32_t uiOffset, std::uint32_t uiBytes) const;
    std::vector<std::byte> GetData2(std::uint32_t uiOffset, std::uint32_t uiBytes) const;
    std::vector<std::byte> GetData4(std::uint32_t uiOffset, std::uint32_t uiBytes) const;
    /// Fills aDest with the 4-byte units that begin at uiOffset, in our byte order.
    /// \return false when the data is shorter; aDest is not changed then
    template <class T>
    [[nodiscard]] bool CopyData4(std::uint32_t uiOffset, std::span<T> aDest) const
    {
        static_assert(sizeof(T) == 4);
        return mCopy4(uiOffset, aDest.data(), aDest.size_bytes());
    }

    // The reverse; false when the range does not lie inside the data, nothing is written then.
    bool SetData1(std::uint32_t uiOffset, const void* pvSource, std::uint32_t uiBytes);
    bool SetData2(std::uint32_t uiOffset, const void* pvSource, std::uint32_t uiBytes);
    bool SetData4(std::uint32_t uiOffset, const void* pvSource, std::uint32_t uiBytes);
    /// Lets the packet send these floats. They are borrowed until it is sent or gets other data,
    /// and copied only for a client of the other byte order. \return false without memory
    [[nodiscard]] bool LendData4(std::span<const float> aSource);
    void ClearData();

    static constexpr std::uint32_t GetMaxBytes() { return 4194304; }

private:
    bool mInside(std::uint32_t uiOffset, std::size_t tBytes) const;
    bool mCopy4(std::uint32_t uiOffset, void* pvDest, std::size_t tBytes) const;
    static bool mDrop(std::size_t tBytes);

    CRemoteHdr m_aRemoteHdr;
    CRemoteData m_aRemoteData;
    std::span<const float> m_aLent;
    bool m_bLostData = false;
};
