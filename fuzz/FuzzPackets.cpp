// The packet layer alone, beside a plain reading of the same bytes.
//
// Input: a byte N and N bytes of commands, one per packet (again from the first when they run out),
// then what the peer sends.

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <string>
#include <tuple>

#include "Util/Util_Memory.h"
#include "Util/Util_TcpServer.h"
#include "fuzz/Target.h"
#include "server/Data/ByteOrder.h"
#include "server/Data/Continuation.h"
#include "server/Data/RemotePacket.h"

namespace
{
using Span = std::span<const std::byte>;

constexpr std::uint32_t g_uiMaxOutput = 1 << 16;

Bytes SwappedUnits(Span aBytes, std::size_t tUnit)
{
    Bytes vResult(aBytes.begin(), aBytes.end());
    for (std::size_t i = 0; CByteOrder::GetInstance()->NeedsSwap() && i + tUnit <= vResult.size();
         i += tUnit)
        std::reverse(&vResult[i], &vResult[i] + tUnit);
    return vResult;
}

/// One run: what the server receives is compared with the stream, what it sends is collected.
struct PacketRun
{
    Span aStream;  // of the peer, as it must arrive
    CRemotePacket aPacket = {};
    std::array<std::uint32_t, 16> auiFields = {};  // what the packet must hold
    Bytes vData = {};
    std::uint32_t uiChain = 0;  // serial of the last packet of a continued message
    Bytes vOutput = {};         // what the peer must get

    std::optional<Span> Take(std::size_t tBytes)
    {
        if (tBytes > aStream.size()) return std::nullopt;
        const Span aTaken = aStream.first(tBytes);
        aStream = aStream.subspan(tBytes);
        return aTaken;
    }
    bool Receive(std::uint8_t uiCommand);
    void Use(std::uint8_t uiCommand);
    void CheckAccess();
    void Echo();
};

bool PacketRun::Receive(std::uint8_t uiCommand)
{
    constexpr std::uint32_t auiCeilings[] = {CRemotePacket::GetMaxBytes(), 0, 7, 65536};
    const auto aHeader = Take(sizeof auiFields);
    Expect(aPacket.RecvHeader() == aHeader.has_value(), "a header is there or not");
    if (!aHeader) return false;
    std::memcpy(auiFields.data(), SwappedUnits(*aHeader, 4).data(), sizeof auiFields);
    for (int n = 0; n < 16; ++n)
        Expect(aPacket.GetNthField(n) == auiFields[std::size_t(n)], "fields as sent");
    const std::uint32_t uiKept = auiCeilings[uiCommand & 3];
    const auto aData = Take(auiFields[3]);
    Expect(aPacket.RecvData(uiKept) == aData.has_value(), "data is there or not");
    if (!aData) return false;
    const Span aKept = aData->first(std::min(auiFields[3], uiKept));
    vData.assign(aKept.begin(), aKept.end());
    Expect(aPacket.GetDataBytes() == vData.size(), "length of the data");
    return true;
}

void PacketRun::Use(std::uint8_t uiCommand)
{
    const bool bContinues = auiFields[0] == CMsgConst::CONTINUATION;
    if (!bContinues || auiFields[4] == uiChain) uiChain = auiFields[1];
    const bool bBelongs = auiFields[4] == uiChain || auiFields[1] == uiChain;
    for (CContinuation* pTracker : {CContinuation::GetClient(), CContinuation::GetServer()})
    {
        pTracker->Process(&aPacket);
        Expect(pTracker->IsCont(&aPacket) == bBelongs, "a chain holds what belongs to it");
    }
    if ((uiCommand & 4) != 0) CheckAccess();
    if ((uiCommand & 32) != 0) Echo();
    if (auiFields[0] == CMsgConst::BYTEORDER || (uiCommand & 64) != 0)
        CByteOrder::GetInstance()->Determine(auiFields[4]);
}

/// Reads and writes a part that lies inside of the data or not, in units of each size.
void PacketRun::CheckAccess()
{
    using P = CRemotePacket;
    using Unit = std::tuple<std::size_t, decltype(&P::GetData1), decltype(&P::SetData1)>;
    constexpr Unit aUnits[] = {{1, &P::GetData1, &P::SetData1},
                               {2, &P::GetData2, &P::SetData2},
                               {4, &P::GetData4, &P::SetData4}};
    const std::uint32_t uiOffset = auiFields[5], uiBytes = auiFields[6];
    const bool bInside = std::uint64_t{uiOffset} + uiBytes <= vData.size();
    for (const auto& [tUnit, pGet, pSet] : aUnits)
    {
        const Span aPart = bInside ? Span(vData).subspan(uiOffset, uiBytes) : Span();
        Bytes vPart = SwappedUnits(aPart, tUnit);
        Expect((aPacket.*pGet)(uiOffset, uiBytes) == vPart, "a part in our byte order");
        vPart.resize(std::min(uiBytes, g_uiMaxOutput));
        for (std::byte& rByte : vPart) rByte ^= std::byte(tUnit);
        const bool bFits = std::uint64_t{uiOffset} + vPart.size() <= vData.size();
        Expect((aPacket.*pSet)(uiOffset, vPart.data(), std::uint32_t(vPart.size())) == bFits,
               "writing inside or not");
        if (bFits) std::ranges::copy(SwappedUnits(vPart, tUnit), vData.data() + uiOffset);
        Expect(aPacket.GetData1(0, aPacket.GetDataBytes()) == vData, "data as written");
    }
}

/// Sends a block of zeros with the header that came.
void PacketRun::Echo()
{
    vData.assign(auiFields[9] % g_uiMaxOutput, std::byte{0});
    Expect(aPacket.SetOptSize(std::uint32_t(vData.size())), "a block of zeros");
    auiFields[3] = std::uint32_t(vData.size());
    Expect(aPacket.SendToClient() == (auiFields[0] != CMsgConst::INVALID), "sent or not");
    if (auiFields[0] != CMsgConst::INVALID && auiFields[0] != CMsgConst::NORESPONSE)
        for (const Bytes& rPart : {SwappedUnits(std::as_bytes(std::span(auiFields)), 4), vData})
            vOutput.insert(vOutput.end(), rPart.begin(), rPart.end());
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
    if (tBytes == 0) return 0;
    const std::size_t tCommands = std::min<std::size_t>(pucData[0], tBytes - 1);
    PacketRun aRun = {std::as_bytes(std::span(pucData + 1 + tCommands, tBytes - 1 - tCommands))};
    const auto GetCommand = [&](std::size_t i)
    { return tCommands == 0 ? std::uint8_t{0} : pucData[1 + i % tCommands]; };
    const auto Serve = [&]
    {
        for (std::size_t i = 0; aRun.Receive(GetCommand(i)); ++i) aRun.Use(GetCommand(i));
        Util_TcpServer::GetInstance()->CloseClient();
    };
    Expect(ServeBytes(aRun.aStream, Serve) == aRun.vOutput, "the peer gets what was sent");
    CByteOrder::DeleteInstance();
    CContinuation::DeleteClient();
    CContinuation::DeleteServer();
    return 0;
}
