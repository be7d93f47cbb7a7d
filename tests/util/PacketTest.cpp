#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

#include "Util/Util_TcpServer.h"
#include "Util/Util_TcpSocket.h"
#include "server/Data/Recon/ProjData.h"
#include "server/Data/RemotePacket.h"
#include "server/Data/RspUtil.h"

namespace
{
CRemotePacket Make(std::uint32_t uiType, std::uint32_t uiSerial, std::uint32_t uiParent)
{
    CRemotePacket aPacket;
    aPacket.SetMsgType(uiType);
    aPacket.SetSerial(uiSerial);
    aPacket.SetParentSerial(uiParent);
    return aPacket;
}

// The ranges of a row, which no reply shows, and the pixels behind them.
TEST(ProjSet, MayEndAnywhere)
{
    int aiSockets[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, aiSockets), 0);
    Util_TcpServer::GetInstance()->TakeClient(aiSockets[0]);
    CProjData& rProjData = *CProjData::GetInstance();
    CRemotePacket aPacket = Make(CMsgConst::PROJSIZE, 1, 2);  // the parent is field 4: 2 columns
    for (const int n : {5, 6}) aPacket.SetNthField(n, n == 5 ? 1 : 3);
    std::string strReason;
    ASSERT_TRUE(rProjData.HandleProjSize(aPacket).DoIt(aPacket, strReason));
    const char acData[] = "01234567abcdefghX";
    for (std::uint32_t uiBytes = 0; uiBytes <= 17; ++uiBytes)
    {
        std::ranges::fill(rProjData.GetRangeX(1), 0);
        std::fill_n(rProjData.GetProjs()->GetData(), 6, 0.0f);
        std::uint32_t auiHeader[16] = {CMsgConst::PROJSET, 1, 0, uiBytes, 1};
        Util_TcpSocket::SendBoth(aiSockets[1], auiHeader, 64, acData, uiBytes);
        ASSERT_TRUE(aPacket.RecvHeader());
        const CRequestPlan aPlan = rProjData.HandleProjSet(aPacket);
        ASSERT_TRUE(aPacket.RecvData(aPlan));
        EXPECT_EQ(aPlan.DoIt(aPacket, strReason), uiBytes <= 16);
        char acGot[24] = {}, acWanted[24] = {};  // with the pixels of the next projection
        std::memcpy(acGot, rProjData.GetRangeX(1).data(), 8);
        std::memcpy(acGot + 8, rProjData.GetProjs()->GetSliceXY(1), 16);
        if (uiBytes <= 16) std::memcpy(acWanted, acData, uiBytes);
        EXPECT_EQ(std::memcmp(acGot, acWanted, 24), 0) << uiBytes;
    }
    Util_TcpSocket::CloseSocket(aiSockets[1]);
    Util_TcpServer::DeleteInstance();
    CProjData::DeleteInstance();
}

TEST(RspUtil, NumbersItsPackets)
{
    CRspUtil& rRspUtil = *CRspUtil::GetInstance();
    rRspUtil.CreateResponse(Make(CMsgConst::SETOP, 1, 0));  // newer than the builder
    EXPECT_EQ(rRspUtil.GetNumPackets(), 0);
    for (const std::uint32_t uiSerial : {0, 1})
    {
        rRspUtil.CreateResponse(Make(CMsgConst::RECONSTATGET, 9, 0));
        for (const int n : {-1, 1}) EXPECT_EQ(rRspUtil.GetNthPacket(n), nullptr);
        for (const int n : {-1, 1}) rRspUtil.ClearNthPacket(n);
        EXPECT_EQ(rRspUtil.GetNthPacket(0)->GetSerial(), uiSerial);
        rRspUtil.ClearNthPacket(0);
        EXPECT_EQ(rRspUtil.GetNthPacket(0), nullptr);
    }
    CRspUtil::DeleteInstance();
}
}  // namespace
