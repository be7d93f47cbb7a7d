#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "Util/Util_SwapByte.h"
#include "Util/Util_TcpServer.h"
#include "Util/Util_TcpSocket.h"
#include "server/Data/ByteOrder.h"
#include "server/Data/Continuation.h"
#include "server/Data/Recon/ProjData.h"
#include "server/Data/Recon/SmoothOpt.h"
#include "server/Data/RemotePacket.h"
#include "server/Data/RequestPlan.h"
#include "server/Data/RspUtil.h"

namespace
{
using Words = std::vector<std::uint32_t>;
constexpr std::uint32_t g_uiTest = 0x1234ABCD, g_uiOther = 0xCDAB3412;

/// A packet as a client of our or of the other byte order sends it.
class Packet : public testing::TestWithParam<bool>
{
protected:
    Packet()
    {
        int aiSockets[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, aiSockets), 0);
        Util_TcpServer::GetInstance()->TakeClient(aiSockets[0]);
        m_iPeer = aiSockets[1];
        CByteOrder::GetInstance()->Determine(GetParam() ? g_uiOther : g_uiTest);
    }
    ~Packet() override
    {
        Util_TcpSocket::CloseSocket(m_iPeer);
        Util_TcpServer::DeleteInstance();
        CByteOrder::DeleteInstance();
        CProjData::DeleteInstance();
        CSmoothOpt::DeleteInstance();
    }
    /// Sends a message with so many bytes of the data, and receives the header.
    void mSend(std::uint32_t uiType, const Words& rFields, Words vuiData, std::size_t tBytes)
    {
        Words vuiAll = {uiType, 7, 0, std::uint32_t(tBytes)};
        vuiAll.insert(vuiAll.end(), rFields.begin(), rFields.end());
        vuiAll.resize(16);
        vuiAll.insert(vuiAll.end(), vuiData.begin(), vuiData.end());
        for (std::uint32_t& rWord : vuiAll)
            if (GetParam()) rWord = Util_SwapByte::DoIt(rWord);
        ASSERT_TRUE(Util_TcpSocket::SendAll(m_iPeer, vuiAll.data(), 64 + tBytes));
        ASSERT_TRUE(m_aPacket.RecvHeader());
    }
    /// What a holder does with the packet.
    template <class T>
    bool mServe(CRequestPlan (T::*pfnHandler)(const CRemotePacket&))
    {
        std::string strReason;
        const CRequestPlan aPlan = (T::GetInstance()->*pfnHandler)(m_aPacket);
        return m_aPacket.RecvData(aPlan) && aPlan.DoIt(m_aPacket, strReason);
    }
    /// The first bytes of a word as this client sends it, before three zero bytes.
    std::uint32_t mCutWord(std::uint32_t uiWord, std::size_t tBytes) const
    {
        if (GetParam()) uiWord = Util_SwapByte::DoIt(uiWord);
        std::uint32_t uiCut = 0;
        std::memcpy(&uiCut, &uiWord, tBytes);
        return uiCut;
    }
    CRemotePacket m_aPacket;
    int m_iPeer = -1;
};
INSTANTIATE_TEST_SUITE_P(ByteOrders, Packet, testing::Bool());

TEST_P(Packet, CopiesOnlyWhatItHolds)
{
    mSend(CMsgConst::SETOP, {1, 0, 0, 0, 0, 0x3F800000}, {1, 2, 3}, 12);
    ASSERT_TRUE(m_aPacket.RecvData(12));
    EXPECT_EQ(m_aPacket.GetNthFieldF(9), 1.0f);
    EXPECT_EQ(m_aPacket.GetNthField(16), 0u);
    std::array<std::uint32_t, 2> auiWords = {};
    EXPECT_TRUE(m_aPacket.CopyData4(4, std::span<std::uint32_t>(auiWords)));
    EXPECT_EQ(auiWords, (std::array<std::uint32_t, 2>{2, 3}));
    for (const std::uint32_t uiOffset : {8u, 0xfffffffcu})
        EXPECT_FALSE(m_aPacket.CopyData4(uiOffset, std::span<std::uint32_t>(auiWords)));
    EXPECT_TRUE(m_aPacket.GetData4(4, 9).empty());
    EXPECT_FALSE(m_aPacket.SetData1(12, auiWords.data(), 1));
    const std::vector<std::byte> vRaw = m_aPacket.GetData1(0, 2);
    EXPECT_EQ(m_aPacket.GetData2(0, 2)[0], vRaw[GetParam() ? 1 : 0]);
    m_aPacket.SetNthField(16, 9);
    EXPECT_EQ(m_aPacket.GetOptSize(), 12u);
}

// Ranges, then pixels; what follows the last whole word is stored as it came, and nothing else.
TEST_P(Packet, ImagesMayEndAnywhere)
{
    CProjData& rProjData = *CProjData::GetInstance();
    mSend(CMsgConst::PROJSIZE, {2, 2, 3}, {}, 0);
    ASSERT_TRUE(mServe(&CProjData::HandleProjSize));
    const Words vuiData = {11, 12, 13, 14, 21, 22, 23, 24};
    for (std::size_t tBytes = 0; tBytes <= 33; ++tBytes)
    {
        SCOPED_TRACE(tBytes);
        std::ranges::fill(rProjData.GetRangeX(1), 0);
        std::fill_n(rProjData.GetProjs()->GetData(), 12, 0.0f);
        mSend(CMsgConst::PROJSET, {1}, {11, 12, 13, 14, 21, 22, 23, 24, 25}, tBytes);
        EXPECT_EQ(mServe(&CProjData::HandleProjSet), tBytes <= 32);
        Words vuiWanted(8);
        if (tBytes <= 32) std::copy_n(vuiData.begin(), tBytes / 4, vuiWanted.begin());
        if (tBytes < 32) vuiWanted[tBytes / 4] = mCutWord(vuiData[tBytes / 4], tBytes % 4);
        Words vuiGot(12);  // four words of ranges and the pixels of this and the next projection
        std::ranges::copy(rProjData.GetRangeX(1), vuiGot.begin());
        std::memcpy(&vuiGot[4], rProjData.GetProjs()->GetSliceXY(1), 32);
        vuiWanted.resize(12);
        EXPECT_EQ(vuiGot, vuiWanted);
    }
}

TEST_P(Packet, KernelsMayEndAnywhereAndBeEmpty)
{
    const Words vuiData = {11, 12, 13, 14};
    for (std::size_t tBytes = 0; tBytes <= 13; ++tBytes)
    {
        mSend(CMsgConst::SMOOTHOPT, {std::uint32_t(tBytes), 3, 1, 1}, vuiData, tBytes);
        ASSERT_EQ(mServe(&CSmoothOpt::HandleSmoothOpt), tBytes <= 12);
        if (tBytes > 12) continue;
        Words vuiWanted(vuiData.begin(), vuiData.begin() + std::ptrdiff_t(tBytes / 4)), vuiGot(3);
        vuiWanted.push_back(mCutWord(vuiData[tBytes / 4], tBytes % 4));
        vuiWanted.resize(3);
        std::memcpy(vuiGot.data(), CSmoothOpt::GetInstance()->GetKernel()->GetData(), 12);
        EXPECT_EQ(vuiGot, vuiWanted) << tBytes;
    }
    mSend(CMsgConst::SMOOTHOPT, {5, 256, 0, 0}, {}, 0);
    EXPECT_FALSE(mServe(&CSmoothOpt::HandleSmoothOpt));
    EXPECT_EQ(CSmoothOpt::GetInstance()->GetInterval(), 12u);
    mSend(CMsgConst::SMOOTHOPT, {0, 0, 0, 0}, {}, 0);
    EXPECT_TRUE(mServe(&CSmoothOpt::HandleSmoothOpt));
    EXPECT_EQ(CSmoothOpt::GetInstance()->GetKernel()->GetData(), nullptr);
}

CRemotePacket Make(std::uint32_t uiType, std::uint32_t uiSerial, std::uint32_t uiParent)
{
    CRemotePacket aPacket;
    aPacket.SetMsgType(uiType);
    aPacket.SetSerial(uiSerial);
    aPacket.SetParentSerial(uiParent);
    return aPacket;
}

TEST(Continuation, FollowsTheChain)
{
    CContinuation aChain;
    EXPECT_EQ(aChain.GetMsgType(), CMsgConst::INVALID);
    aChain.Process(nullptr);
    const CRemotePacket aMain = Make(CMsgConst::VOLSET, 7, 0);
    const CRemotePacket aChild = Make(CMsgConst::CONTINUATION, 8, 7);
    const CRemotePacket aStray = Make(CMsgConst::CONTINUATION, 9, 5);
    aChain.Process(&aMain);
    EXPECT_TRUE(aChain.IsCont(&aChild));
    aChain.Process(&aChild);
    aChain.Process(&aStray);
    EXPECT_EQ(aChain.GetSerial(), 8u);
    EXPECT_EQ(aChain.GetMsgType(), CMsgConst::VOLSET);
    EXPECT_TRUE(aChain.IsCont(&aChild));
    EXPECT_FALSE(aChain.IsCont(&aStray));
}

TEST(RspUtil, NumbersItsPackets)
{
    CRspUtil& rRspUtil = *CRspUtil::GetInstance();
    rRspUtil.CreateResponse(Make(CMsgConst::SETOP, 1, 0));  // newer than the builder
    EXPECT_EQ(rRspUtil.GetNumPackets(), 0);
    for (const std::uint32_t uiSerial : {0u, 1u})
    {
        rRspUtil.CreateResponse(Make(CMsgConst::VOLSIZE, 9, 0));
        ASSERT_EQ(rRspUtil.GetNumPackets(), 1);
        for (const int n : {-1, 1}) EXPECT_EQ(rRspUtil.GetNthPacket(n), nullptr);
        for (const int n : {-1, 1}) rRspUtil.ClearNthPacket(n);
        EXPECT_EQ(rRspUtil.GetNthPacket(0)->GetSerial(), uiSerial);
        EXPECT_EQ(rRspUtil.GetNthPacket(0)->GetMsgType(), CMsgConst::CMDREPLY);
        rRspUtil.ClearNthPacket(0);
        EXPECT_EQ(rRspUtil.GetNthPacket(0), nullptr);
    }
    rRspUtil.CreateResponse(Make(CMsgConst::RECONSTATGET, 1, 0));
    EXPECT_EQ(rRspUtil.GetNthPacket(0)->GetNthField(5), 1u);  // there are none
    EXPECT_EQ(rRspUtil.GetNthPacket(0)->GetMsgType(), CMsgConst::DATAREPLY);
    CRspUtil::DeleteInstance();
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
