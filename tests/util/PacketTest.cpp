#include <gtest/gtest.h>

#include <array>
#include <bit>

#include "Util/Util_SwapByte.h"
#include "server/Data/Continuation.h"
#include "server/Data/Recon/VolData.h"
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

TEST(Continuation, FollowsTheChain)
{
    CContinuation aChain;
    aChain.Process(nullptr);
    EXPECT_EQ(aChain.GetMsgType(), CMsgConst::INVALID);
    const CRemotePacket aStray = Make(CMsgConst::CONTINUATION, 6, 5);
    for (const std::uint32_t uiSerial : {7, 8, 9})  // each the child of the one before
    {
        const std::uint32_t uiType = uiSerial == 7 ? CMsgConst::VOLSET : CMsgConst::CONTINUATION;
        const CRemotePacket aPacket = Make(uiType, uiSerial, uiSerial - 1);
        EXPECT_EQ(aChain.IsCont(&aPacket), uiSerial > 7);
        EXPECT_EQ(aChain.IsCont(&aStray), false);
        aChain.Process(&aPacket);
        aChain.Process(&aStray);
        EXPECT_TRUE(aChain.IsCont(&aPacket));
        EXPECT_EQ(aChain.GetSerial(), uiSerial);
        EXPECT_EQ(aChain.GetMsgType(), CMsgConst::VOLSET);
    }
}

TEST(RspUtil, NumbersItsPackets)
{
    CRspUtil& rRspUtil = *CRspUtil::GetInstance();
    rRspUtil.CreateResponse(Make(CMsgConst::SETOP, 1, 0));  // newer than the builder
    EXPECT_EQ(rRspUtil.GetNumPackets(), 0);
    std::uint32_t uiSerial = 0;
    for (const auto& [uiType, uiReply] : {std::pair(CMsgConst::VOLSIZE, CMsgConst::CMDREPLY),
                                          {CMsgConst::RECONSTATGET, CMsgConst::DATAREPLY}})
    {
        rRspUtil.CreateResponse(Make(uiType, 9, 0));
        ASSERT_EQ(rRspUtil.GetNumPackets(), 1);
        for (const int n : {-1, 1}) EXPECT_EQ(rRspUtil.GetNthPacket(n), nullptr);
        for (const int n : {-1, 1}) rRspUtil.ClearNthPacket(n);
        EXPECT_EQ(rRspUtil.GetNthPacket(0)->GetSerial(), uiSerial);
        EXPECT_EQ(rRspUtil.GetNthPacket(0)->GetMsgType(), uiReply);
        EXPECT_EQ(rRspUtil.GetNthPacket(0)->GetNthField(5), uiSerial++);  // no such iteration
        rRspUtil.ClearNthPacket(0);
        EXPECT_EQ(rRspUtil.GetNthPacket(0), nullptr);
    }
    CRspUtil::DeleteInstance();
}

// The last slice ends the volume.
TEST(RspUtil, GivesTheVolumeAway)
{
    CVolData::GetInstance()->GetVolume()->SetSize(2, 1, 2);
    CVolData::GetInstance()->GetNthSlice(1)[1] = 7;
    for (const auto& [uiSlice, uiBytes] : {std::pair(2u, 0u), {0u, 8u}, {1u, 8u}, {0u, 0u}})
    {
        CRspUtil::GetInstance()->CreateResponse(Make(CMsgConst::VOLGET, 9, uiSlice));
        const CRemotePacket& rReply = *CRspUtil::GetInstance()->GetNthPacket(0);
        EXPECT_EQ(rReply.GetOptSize(), uiBytes);
        EXPECT_EQ(rReply.GetNthField(5), uiBytes == 0 ? 1u : 0u);
        std::array<float, 2> afSlice = {};
        EXPECT_EQ(rReply.CopyData4(0, std::span<float>(afSlice)), uiBytes == 8);
        EXPECT_EQ(afSlice[1], uiSlice == 1 ? 7 : 0);
    }
    CRspUtil::DeleteInstance();
}

TEST(SwapByte, ReversesEveryType)
{
    EXPECT_EQ(Util_SwapByte::DoIt(static_cast<short>(0x0180)), static_cast<short>(0x8001));
    EXPECT_EQ(Util_SwapByte::DoIt(0x1234ABCDu), 0xCDAB3412u);
    EXPECT_EQ(Util_SwapByte::DoIt(std::bit_cast<double>(0x0102030405060708)),
              std::bit_cast<double>(0x0807060504030201));
}
}  // namespace
