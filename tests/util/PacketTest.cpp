#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <array>
#include <cmath>
#include <cstring>

#include "Util/Util_SwapByte.h"
#include "Util/Util_TcpServer.h"
#include "Util/Util_TcpSocket.h"
#include "server/Data/ByteOrder.h"
#include "server/Data/Continuation.h"
#include "server/Data/RemotePacket.h"

namespace
{
constexpr std::uint32_t g_uiTest = 0x1234ABCD, g_uiOther = 0xCDAB3412;

class Packet : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(Util_TcpServer::CreateServer(0, "127.0.0.1"));
        m_iPeer = Util_TcpSocket::CreateSocket();
        sockaddr_in aAddress = {};
        aAddress.sin_family = AF_INET;
        aAddress.sin_port = htons(static_cast<std::uint16_t>(Util_TcpServer::GetPort()));
        aAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ASSERT_EQ(connect(m_iPeer, reinterpret_cast<sockaddr*>(&aAddress), sizeof aAddress), 0);
        ASSERT_EQ(Util_TcpServer::GetInstance()->ConnectClient(5), 1);
    }
    void TearDown() override
    {
        Util_TcpSocket::CloseSocket(m_iPeer);
        Util_TcpServer::DeleteInstance();
        CByteOrder::DeleteInstance();
    }
    void PeerSends(const std::vector<std::uint32_t>& rWords)
    {
        ASSERT_TRUE(Util_TcpSocket::SendAll(m_iPeer, rWords.data(), 4 * rWords.size()));
    }
    std::vector<std::uint32_t> PeerReceives(std::size_t tWords)
    {
        std::vector<std::uint32_t> vuiWords(tWords);
        EXPECT_TRUE(Util_TcpSocket::RecvAll(m_iPeer, vuiWords.data(), 4 * tWords));
        return vuiWords;
    }
    bool PeerHasNothing()
    {
        char cByte;
        return recv(m_iPeer, &cByte, 1, MSG_DONTWAIT | MSG_PEEK) == -1;
    }
    int m_iPeer = -1;
};

std::vector<std::uint32_t> Header(std::uint32_t uiType, std::uint32_t uiBytes)
{
    std::vector<std::uint32_t> vuiHeader(16);
    vuiHeader[0] = uiType;
    vuiHeader[3] = uiBytes;
    vuiHeader[9] = 0x3F800000;
    return vuiHeader;
}

TEST_F(Packet, ReceivesInEitherByteOrder)
{
    for (const bool bSwap : {false, true})
    {
        SCOPED_TRACE(bSwap);
        CByteOrder::GetInstance()->Determine(bSwap ? g_uiOther : g_uiTest);
        std::vector<std::uint32_t> vuiSent = Header(CMsgConst::SETOP, 12);
        vuiSent.insert(vuiSent.end(), {1, 2, 3});
        if (bSwap)
            for (std::uint32_t& rWord : vuiSent) rWord = Util_SwapByte::DoIt(rWord);
        PeerSends(vuiSent);
        CRemotePacket aPacket;
        ASSERT_TRUE(aPacket.RecvFromClient());
        EXPECT_EQ(aPacket.GetMsgType(), CMsgConst::SETOP);
        EXPECT_EQ(aPacket.GetNthFieldF(9), 1.0f);
        std::array<std::uint32_t, 2> auiWords = {};
        EXPECT_TRUE(aPacket.CopyData4(4, std::span<std::uint32_t>(auiWords)));
        EXPECT_EQ(auiWords, (std::array<std::uint32_t, 2>{2, 3}));

        // What lies outside is never touched.
        EXPECT_FALSE(aPacket.CopyData4(8, std::span<std::uint32_t>(auiWords)));
        EXPECT_EQ(auiWords, (std::array<std::uint32_t, 2>{2, 3}));
        EXPECT_FALSE(aPacket.CopyData4(0xfffffffc, std::span<std::uint32_t>(auiWords)));
        EXPECT_TRUE(aPacket.GetData4(4, 9).empty());
        EXPECT_FALSE(aPacket.SetData1(12, auiWords.data(), 1));
        EXPECT_EQ(aPacket.GetNthField(16), 0u);

        // A remainder of less than a unit is not swapped.
        const std::vector<std::byte> vOdd = aPacket.GetData4(0, 6), vRaw = aPacket.GetData1(0, 6);
        EXPECT_EQ(std::memcmp(vOdd.data() + 4, vRaw.data() + 4, 2), 0);
        EXPECT_EQ(std::memcmp(vOdd.data(), vRaw.data(), 4) != 0, bSwap);
        EXPECT_EQ(aPacket.GetData2(0, 2)[0], vRaw[bSwap ? 1 : 0]);
    }
}

TEST_F(Packet, DropsWhatIsBeyondTheCeiling)
{
    std::vector<std::uint32_t> vuiSent = Header(4711, 400000);
    vuiSent.resize(16 + 100000, 5);
    const std::vector<std::uint32_t> vuiNext = Header(CMsgConst::QUIT, 0);
    vuiSent.insert(vuiSent.end(), vuiNext.begin(), vuiNext.end());
    PeerSends(vuiSent);
    CRemotePacket aPacket;
    ASSERT_TRUE(aPacket.RecvHeader());
    ASSERT_TRUE(aPacket.RecvData(8));
    EXPECT_EQ(aPacket.GetOptSize(), 400000u);  // as the client said
    EXPECT_EQ(aPacket.GetDataBytes(), 8u);
    ASSERT_TRUE(aPacket.RecvFromClient());
    EXPECT_EQ(aPacket.GetMsgType(), CMsgConst::QUIT);
    EXPECT_EQ(aPacket.GetDataBytes(), 0u);
}

TEST_F(Packet, SendsWhatItHolds)
{
    const std::array<float, 3> afData = {1, 2, 3};
    for (const bool bSwap : {false, true})
    {
        SCOPED_TRACE(bSwap);
        CByteOrder::GetInstance()->Determine(bSwap ? g_uiOther : g_uiTest);
        const auto Native = [bSwap](std::uint32_t ui)
        { return bSwap ? Util_SwapByte::DoIt(ui) : ui; };
        CRemotePacket aPacket;
        EXPECT_FALSE(aPacket.SendToClient());  // INVALID
        aPacket.SetMsgType(CMsgConst::NORESPONSE);
        EXPECT_TRUE(aPacket.SendToClient());
        EXPECT_TRUE(PeerHasNothing());

        aPacket.SetMsgType(CMsgConst::DATAREPLY);
        aPacket.SetNthField(6, 77);
        ASSERT_TRUE(aPacket.LendData4(afData));
        ASSERT_TRUE(aPacket.SendToClient());
        std::vector<std::uint32_t> vuiGot = PeerReceives(19);
        EXPECT_EQ(Native(vuiGot[0]), CMsgConst::DATAREPLY);
        EXPECT_EQ(Native(vuiGot[3]), 12u);
        EXPECT_EQ(Native(vuiGot[6]), 77u);
        EXPECT_EQ(Native(vuiGot[18]), std::bit_cast<std::uint32_t>(3.0f));

        // A field that is not written again goes out as it was sent: swapped back.
        aPacket.SetMsgType(CMsgConst::CMDREPLY);
        aPacket.ClearData();
        ASSERT_TRUE(aPacket.SendToClient());
        vuiGot = PeerReceives(16);
        EXPECT_EQ(Native(vuiGot[0]), CMsgConst::CMDREPLY);
        EXPECT_EQ(vuiGot[6], 77u);
        EXPECT_TRUE(PeerHasNothing());
    }
}

TEST(RemoteHdr, OldRequestsHaveAReplyType)
{
    CRemotePacket aPacket;
    for (const auto& [uiType, uiReply] : {std::pair(CMsgConst::PROJGET, CMsgConst::DATAREPLY),
                                          {CMsgConst::RECONSTRUCT, CMsgConst::CMDREPLY},
                                          {CMsgConst::SETOP, CMsgConst::NORESPONSE},
                                          {CMsgConst::INVALID, CMsgConst::NORESPONSE}})
    {
        aPacket.SetMsgType(uiType);
        EXPECT_EQ(aPacket.GetRspMsg(), uiReply) << uiType;
    }
}

TEST(Continuation, FollowsTheChain)
{
    const auto Make = [](std::uint32_t uiType, std::uint32_t uiSerial, std::uint32_t uiParent)
    {
        CRemotePacket aPacket;
        aPacket.SetMsgType(uiType);
        aPacket.SetSerial(uiSerial);
        aPacket.SetParentSerial(uiParent);
        return aPacket;
    };
    CContinuation aChain;
    EXPECT_EQ(aChain.GetMsgType(), CMsgConst::INVALID);
    aChain.Process(nullptr);
    const CRemotePacket aMain = Make(CMsgConst::VOLSET, 7, 0);
    const CRemotePacket aChild = Make(CMsgConst::CONTINUATION, 8, 7);
    const CRemotePacket aStray = Make(CMsgConst::CONTINUATION, 9, 5);
    aChain.Process(&aMain);
    EXPECT_TRUE(aChain.IsCont(&aChild));
    aChain.Process(&aChild);
    EXPECT_EQ(aChain.GetSerial(), 8u);
    EXPECT_EQ(aChain.GetMsgType(), CMsgConst::VOLSET);
    aChain.Process(&aStray);
    EXPECT_EQ(aChain.GetSerial(), 8u);
    EXPECT_TRUE(aChain.IsCont(&aChild));
    EXPECT_FALSE(aChain.IsCont(&aStray));
}

TEST(SwapByte, ReversesEveryType)
{
    EXPECT_EQ(Util_SwapByte::DoIt(static_cast<short>(0x0180)), static_cast<short>(0x8001));
    EXPECT_EQ(Util_SwapByte::DoIt(g_uiTest), g_uiOther);
    const double dPi = std::acos(-1.0), dSwapped = Util_SwapByte::DoIt(dPi);
    for (std::size_t i = 0; i < 8; ++i)
        EXPECT_EQ(reinterpret_cast<const char*>(&dPi)[i],
                  reinterpret_cast<const char*>(&dSwapped)[7 - i]);
}
}  // namespace
