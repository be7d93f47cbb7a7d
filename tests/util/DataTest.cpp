#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>

#include "Util/Util_TcpServer.h"
#include "Util/Util_TcpSocket.h"
#include "server/Data/Recon/CompareSum.h"
#include "server/Data/Recon/ProjData.h"
#include "server/Data/Recon/Rfactor.h"
#include "server/Data/RemotePacket.h"
#include "server/Data/RspUtil.h"

namespace
{
/// The stack, of zeros.
CProjData& MakeStack(int iX, int iY, int iProjs)
{
    CProjData& rProjs = *CProjData::GetInstance();
    CRemotePacket aSize;
    for (const auto& [n, i] : {std::pair(4, iX), {5, iY}, {6, iProjs}})
        aSize.SetNthField(n, std::uint32_t(i));
    std::string strReason;
    EXPECT_TRUE(rProjs.HandleProjSize(aSize).DoIt(aSize, strReason)) << strReason;
    return rProjs;
}

TEST(ProjData, FindsTheRangesOfValidColumns)
{
    CProjData::GetInstance()->DetRangeX();  // of nothing
    CProjData& rProjs = MakeStack(3, 6, 2);
    const float fMissing = -1e20f, fEdge = -1e15f, fNaN = std::numeric_limits<float>::quiet_NaN();
    const float afRows[] = {fMissing, fMissing, fMissing, 0,     0,        0,
                            fMissing, 1,        fMissing, 2,     fMissing, 3,
                            fMissing, fMissing, fNaN,     fEdge, fMissing, fMissing};
    std::ranges::copy(afRows, rProjs.GetProjs()->GetSliceXY(1));
    rProjs.DetRangeX();
    // -1e15 as a float lies above -1e15 as a double.
    const std::vector<std::uint32_t> vuiExpected = {0, 3, 0, 3, 0, 3, 0, 3, 0, 3, 0, 3,
                                                    4, 0, 0, 3, 1, 2, 0, 3, 2, 3, 0, 1};
    EXPECT_TRUE(std::ranges::equal(std::as_const(rProjs).GetRangeX(), vuiExpected));
    CProjData::DeleteInstance();
}

// The ranges of a row, which no reply shows, and the pixels behind them.
TEST(ProjData, MayEndAnywhere)
{
    int aiSockets[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, aiSockets), 0);
    Util_TcpServer::GetInstance()->TakeClient(aiSockets[0]);
    const char acData[] = "01234567abcdefghX";
    for (std::uint32_t uiBytes = 0; uiBytes <= 17; ++uiBytes)
    {
        CProjData& rProjs = MakeStack(2, 1, 3);
        const std::uint32_t auiHeader[16] = {CMsgConst::PROJSET, 1, 0, uiBytes, 1};
        Util_TcpSocket::SendBoth(aiSockets[1], auiHeader, 64, acData, uiBytes);
        CRemotePacket aPacket;
        ASSERT_TRUE(aPacket.RecvHeader());
        const CRequestPlan aPlan = rProjs.HandleProjSet(aPacket);
        ASSERT_TRUE(aPacket.RecvData(aPlan));
        std::string strReason;
        EXPECT_EQ(aPlan.DoIt(aPacket, strReason), uiBytes <= 16);
        char acGot[24] = {}, acWanted[24] = {};  // with the pixels of the next projection
        std::memcpy(acGot, rProjs.GetRangeX(1).data(), 8);
        std::memcpy(acGot + 8, rProjs.GetProjs()->GetSliceXY(1), 16);
        if (uiBytes <= 16) std::memcpy(acWanted, acData, uiBytes);
        EXPECT_EQ(std::memcmp(acGot, acWanted, 24), 0) << uiBytes;
    }
    Util_TcpSocket::CloseSocket(aiSockets[1]);
    Util_TcpServer::DeleteInstance();
    CProjData::DeleteInstance();
}

TEST(CompareSum, DoesNotDependOnTheOrderOfBands)
{
    CCompareSum aSums;
    aSums.StopTimer();
    EXPECT_EQ(aSums.GetMilliseconds(), 0u);  // never started
    const float afDiff[] = {1e30f, 1e-3f, -1e30f, 7.0f};
    std::vector<int> viOrder = {0, 1, 2, 3};
    do
    {
        aSums.Reset();
        for (const int i : viOrder)
            aSums.Add({.iStartY = 10 * i, .fSumDiff = afDiff[i], .fCount = 250});
        EXPECT_EQ(aSums.GetCount(), std::bit_cast<std::uint32_t>(1000.0f));
        EXPECT_EQ(aSums.GetSumDiff(), std::bit_cast<std::uint32_t>(7.0f));
    } while (std::ranges::next_permutation(viOrder).found);
}

TEST(Rfactor, SumsOverProjections)
{
    CRfactor aRfactor;
    aRfactor.SetSize(2, 3);
    aRfactor.SetRfactor(std::vector<double>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11});
    EXPECT_EQ(aRfactor.GetRawFactor(1), 4 + 6);
    EXPECT_EQ(aRfactor.GetDifFactor(2), 9 + 11);
    for (const int i : {-1, 3}) EXPECT_EQ(aRfactor.GetRawFactor(i) + aRfactor.GetDifFactor(i), 0);
}

TEST(RspUtil, NumbersItsPackets)
{
    CRspUtil aRspUtil;
    CRemotePacket aRequest;
    for (const std::uint32_t uiSerial : {0, 1})
    {
        aRequest.SetMsgType(CMsgConst::RECONSTATGET);
        aRspUtil.CreateResponse(aRequest);
        for (const int n : {-1, 1}) aRspUtil.ClearNthPacket(n);
        for (const int n : {-1, 1}) EXPECT_EQ(aRspUtil.GetNthPacket(n), nullptr);
        EXPECT_EQ(aRspUtil.GetNthPacket(0)->GetSerial(), uiSerial);
        aRspUtil.ClearNthPacket(0);
        EXPECT_EQ(aRspUtil.GetNthPacket(0), nullptr);
    }
    aRequest.SetMsgType(CMsgConst::SETOP);  // newer than the builder
    aRspUtil.CreateResponse(aRequest);
    EXPECT_EQ(aRspUtil.GetNumPackets(), 0);
}
}  // namespace
