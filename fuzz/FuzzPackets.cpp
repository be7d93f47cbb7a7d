// The packet layer alone, beside a plain reading of the same bytes.
//
// Input: a byte N and N bytes of commands, one per packet (again from the first when they run out),
// then what the peer sends.

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Util/Util_Memory.h"
#include "Util/Util_SwapByte.h"
#include "Util/Util_TcpServer.h"
#include "Util/Util_Volume.h"
#include "fuzz/Console.h"
#include "fuzz/Peer.h"
#include "server/Data/ByteOrder.h"
#include "server/Data/Continuation.h"
#include "server/Data/Recon/VolData.h"
#include "server/Data/RemotePacket.h"
#include "server/Data/RspUtil.h"

namespace
{
using Bytes = std::vector<std::byte>;

constexpr std::size_t g_tHeaderBytes = 64;
constexpr std::uint32_t g_uiMaxOutput = 1 << 16;

void Expect(bool bTrue, const char* pcWhat)
{
    if (!bTrue) Broken("%s", pcWhat);
}

/// The bytes of the peer as they must arrive.
class CStream
{
public:
    explicit CStream(std::span<const std::byte> aBytes) : m_aBytes(aBytes) {}
    std::optional<std::span<const std::byte>> Take(std::size_t tBytes)
    {
        if (tBytes > m_aBytes.size()) return std::nullopt;
        const auto aTaken = m_aBytes.first(tBytes);
        m_aBytes = m_aBytes.subspan(tBytes);
        return aTaken;
    }

private:
    std::span<const std::byte> m_aBytes;
};

Bytes SwappedUnits(std::span<const std::byte> aBytes, std::size_t tUnit)
{
    Bytes vResult(aBytes.begin(), aBytes.end());
    if (CByteOrder::GetInstance()->NeedsSwap())
        for (std::size_t i = 0; i + tUnit <= vResult.size(); i += tUnit)
            std::reverse(&vResult[i], &vResult[i] + tUnit);
    return vResult;
}

bool IsSame(const Bytes& rA, const Bytes& rB)
{
    return rA == rB;
}

/// One run: what the server receives is compared with the stream, what it sends is collected.
class CPacketRun
{
public:
    CPacketRun(std::span<const std::uint8_t> aCommands, std::span<const std::byte> aBytes)
        : m_aCommands(aCommands), m_aStream(aBytes)
    {
    }
    void DoIt()
    {
        for (std::size_t i = 0; mReceive(i); ++i) mUse(i);
    }
    const Bytes& GetOutput() const { return m_vOutput; }

private:
    std::uint8_t mCommand(std::size_t i) const
    {
        return m_aCommands.empty() ? 0 : m_aCommands[i % m_aCommands.size()];
    }
    bool mReceive(std::size_t i);
    bool mReceiveData(std::uint8_t uiCommand);
    bool mReceiveSlice();
    void mUse(std::size_t i);
    void mCheckAccess();
    void mCheckWriting();
    void mEcho();
    void mSend();
    void mRespond();

    const std::span<const std::uint8_t> m_aCommands;
    CStream m_aStream;
    CRemotePacket m_aPacket;
    Bytes m_vData;    // what the packet must hold
    Bytes m_vOutput;  // what the peer must get
};

bool CPacketRun::mReceive(std::size_t i)
{
    const auto aHeader = m_aStream.Take(g_tHeaderBytes);
    Expect(m_aPacket.RecvHeader() == aHeader.has_value(), "a header is there or not");
    if (!aHeader) return false;
    std::array<std::uint32_t, 16> auiFields;
    std::memcpy(auiFields.data(), SwappedUnits(*aHeader, 4).data(), g_tHeaderBytes);
    for (int n = 0; n < 16; ++n)
        Expect(m_aPacket.GetNthField(n) == auiFields[std::size_t(n)], "fields as sent");
    if (m_aPacket.GetMsgType() == CMsgConst::VOLSET) return mReceiveSlice();
    return mReceiveData(mCommand(i));
}

bool CPacketRun::mReceiveData(std::uint8_t uiCommand)
{
    constexpr std::array<std::uint32_t, 4> auiCeilings = {CRemotePacket::GetMaxBytes(), 0, 7,
                                                          65536};
    const std::uint32_t uiCeiling = auiCeilings[uiCommand & 3], uiBytes = m_aPacket.GetOptSize();
    const auto aData = m_aStream.Take(uiBytes);
    Expect(m_aPacket.RecvData(uiCeiling) == aData.has_value(), "data is there or not");
    if (!aData) return false;
    const auto aKept = aData->first(std::min(uiBytes, uiCeiling));
    m_vData.assign(aKept.begin(), aKept.end());
    Expect(m_aPacket.GetDataBytes() == m_vData.size(), "length of the data");
    return true;
}

/// The path of uploads: straight into the volume.
bool CPacketRun::mReceiveSlice()
{
    std::string strReason;
    const CRequestPlan aPlan = CVolData::GetInstance()->HandleVolSet(m_aPacket);
    const auto aData = m_aStream.Take(m_aPacket.GetOptSize());
    const bool bReceived = m_aPacket.RecvData(aPlan);
    Expect(bReceived == aData.has_value(), "a slice is there or not");
    m_vData.clear();
    if (!aData || !aPlan.DoIt(m_aPacket, strReason)) return bReceived;
    const Bytes vWanted = SwappedUnits(*aData, 4);
    Expect(std::ranges::equal(vWanted, aPlan.GetTarget()[0]), "the slice is what was sent");
    return true;
}

void CPacketRun::mUse(std::size_t i)
{
    const std::uint8_t uiCommand = mCommand(i);
    for (CContinuation* pTracker : {CContinuation::GetClient(), CContinuation::GetServer()})
    {
        pTracker->Process(&m_aPacket);
        if (m_aPacket.GetMsgType() != CMsgConst::CONTINUATION)
            Expect(pTracker->IsCont(&m_aPacket), "a chain holds its main packet");
    }
    std::string strReason;
    if (m_aPacket.GetMsgType() == CMsgConst::VOLSIZE)
        static_cast<void>(
            CVolData::GetInstance()->HandleVolSize(m_aPacket).DoIt(m_aPacket, strReason));
    if ((uiCommand & 4) != 0) mCheckAccess();
    if ((uiCommand & 8) != 0) mRespond();
    if ((uiCommand & 16) != 0) mCheckWriting();
    if ((uiCommand & 32) != 0) mEcho();
    if (m_aPacket.GetMsgType() == CMsgConst::BYTEORDER || (uiCommand & 64) != 0)
        CByteOrder::GetInstance()->Determine(m_aPacket.GetNthField(4));
}

void CPacketRun::mCheckAccess()
{
    const std::uint32_t uiOffset = m_aPacket.GetNthField(5), uiBytes = m_aPacket.GetNthField(6);
    const bool bInside = std::uint64_t{uiOffset} + uiBytes <= m_vData.size();
    std::span<const std::byte> aPart;
    if (bInside) aPart = std::span<const std::byte>(m_vData).subspan(uiOffset, uiBytes);
    Expect(IsSame(m_aPacket.GetData1(uiOffset, uiBytes), {aPart.begin(), aPart.end()}), "GetData1");
    Expect(IsSame(m_aPacket.GetData2(uiOffset, uiBytes), SwappedUnits(aPart, 2)), "GetData2");
    Expect(IsSame(m_aPacket.GetData4(uiOffset, uiBytes), SwappedUnits(aPart, 4)), "GetData4");
    std::vector<std::uint32_t> vuiWords(std::min(uiBytes, g_uiMaxOutput) / 4);
    const bool bFits = std::uint64_t{uiOffset} + 4 * vuiWords.size() <= m_vData.size();
    Expect(m_aPacket.CopyData4(uiOffset, std::span(vuiWords)) == bFits, "CopyData4");
}

void CPacketRun::mCheckWriting()
{
    const std::uint32_t uiOffset = m_aPacket.GetNthField(7);
    const std::array<std::uint32_t, 3> auiWords = {0x01020304, 0x05060708, 0x090A0B0C};
    const auto uiBytes = std::min<std::uint32_t>(m_aPacket.GetNthField(8), sizeof auiWords);
    const auto aBytes = std::as_bytes(std::span(auiWords)).first(uiBytes);
    const bool bInside = std::uint64_t{uiOffset} + uiBytes <= m_vData.size();
    const auto Written = [&](bool bResult, std::size_t tUnit)
    {
        Expect(bResult == bInside, "writing inside the data or not");
        if (bInside) std::ranges::copy(SwappedUnits(aBytes, tUnit), m_vData.data() + uiOffset);
        Expect(IsSame(m_aPacket.GetData1(0, m_aPacket.GetDataBytes()), m_vData), "as written");
    };
    Written(m_aPacket.SetData1(uiOffset, auiWords.data(), uiBytes), 1);
    Written(m_aPacket.SetData2(uiOffset, auiWords.data(), uiBytes), 2);
    Written(m_aPacket.SetData4(uiOffset, auiWords.data(), uiBytes), 4);
}

void CPacketRun::mSend()
{
    CRemotePacket& rPacket = m_aPacket;
    std::array<std::uint32_t, 16> auiFields;
    for (int n = 0; n < 16; ++n) auiFields[std::size_t(n)] = rPacket.GetNthField(n);
    const std::uint32_t uiType = rPacket.GetMsgType();
    Expect(rPacket.SendToClient() == (uiType != CMsgConst::INVALID), "sent or not");
    if (uiType == CMsgConst::INVALID || uiType == CMsgConst::NORESPONSE) return;
    const Bytes vHeader = SwappedUnits(std::as_bytes(std::span(auiFields)), 4);
    m_vOutput.insert(m_vOutput.end(), vHeader.begin(), vHeader.end());
    m_vOutput.insert(m_vOutput.end(), m_vData.begin(), m_vData.end());
}

/// Sends a block of zeros, or lent floats, with the header that came.
void CPacketRun::mEcho()
{
    const std::uint32_t uiBytes = m_aPacket.GetNthField(9) % g_uiMaxOutput;
    if (m_aPacket.GetNthField(10) % 2 == 0)
    {
        Expect(m_aPacket.SetOptSize(uiBytes), "a block of zeros");
        m_vData.assign(uiBytes, std::byte{0});
        return mSend();
    }
    std::vector<float> vfLent(uiBytes / 4, 1.5f);
    Expect(m_aPacket.LendData4(vfLent), "a loan");
    m_vData = SwappedUnits(std::as_bytes(std::span(vfLent)), 4);
    mSend();
    m_aPacket.ClearData();
    m_vData.clear();
}

/// The response as packets of its own, which must say whose they are.
void CPacketRun::mRespond()
{
    CRspUtil* pUtil = CRspUtil::GetInstance();
    if (CVolData::GetInstance()->GetVolume()->GetVoxels() > g_uiMaxOutput) return;
    pUtil->CreateResponse(m_aPacket);
    for (int n = 0; n < pUtil->GetNumPackets(); ++n)
    {
        const CRemotePacket& rReply = *pUtil->GetNthPacket(n);
        Expect(rReply.GetParentSerial() == m_aPacket.GetSerial(), "parent of a response");
        Expect(rReply.GetDataBytes() == rReply.GetOptSize(), "data of a response");
    }
    pUtil->ClearNthPacket(0);
}
}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    TakeConsole();
    Util_Memory::Assume(std::size_t{4} << 20);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pucData, std::size_t tBytes)
{
    static CPeer s_aPeer;
    if (tBytes == 0) return 0;
    const std::size_t tCommands = std::min<std::size_t>(pucData[0], tBytes - 1);
    const std::span aCommands(pucData + 1, tCommands);
    const auto aBytes = std::as_bytes(std::span(pucData + 1 + tCommands, tBytes - 1 - tCommands));

    Bytes vReceived;
    s_aPeer.Connect(aBytes, [&](std::span<const std::byte> aPiece)
                    { vReceived.insert(vReceived.end(), aPiece.begin(), aPiece.end()); });
    CPacketRun aRun(aCommands, aBytes);
    aRun.DoIt();
    Util_TcpServer::GetInstance()->CloseClient();
    s_aPeer.Finish();
    Expect(IsSame(vReceived, aRun.GetOutput()), "the peer gets what was sent");

    CByteOrder::DeleteInstance();
    CContinuation::DeleteClient();
    CContinuation::DeleteServer();
    CRspUtil::DeleteInstance();
    CVolData::DeleteInstance();
    return 0;
}
