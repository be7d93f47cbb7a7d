#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <limits>
#include <thread>

#include "Util/Util_Volume.h"
#include "server/Data/Recon/CompareSum.h"
#include "server/Data/Recon/HolderMemory.h"
#include "server/Data/Recon/ProjData.h"
#include "server/Data/Recon/ReconOpt.h"
#include "server/Data/Recon/Rfactor.h"
#include "server/Data/Recon/SetOp.h"
#include "server/Data/Recon/SmoothOpt.h"
#include "server/Data/Recon/VolData.h"
#include "server/Data/Recon/WeightOpt.h"
#include "server/Data/RemotePacket.h"
#include "server/Data/RspUtil.h"

namespace
{
CRemotePacket Make(const std::vector<std::uint32_t>& rFields, const std::vector<float>& rData = {})
{
    CRemotePacket aPacket;
    for (std::size_t i = 0; i < rFields.size(); ++i)
        aPacket.SetNthField(static_cast<int>(4 + i), rFields[i]);
    const auto uiBytes = static_cast<std::uint32_t>(4 * rData.size());
    EXPECT_TRUE(aPacket.SetOptSize(uiBytes));
    EXPECT_TRUE(aPacket.SetData4(0, rData.data(), uiBytes));
    return aPacket;
}

class Holders : public testing::Test
{
protected:
    void TearDown() override
    {
        CProjData::DeleteInstance();
        CVolData::DeleteInstance();
        CReconOpt::DeleteInstance();
        CSetOp::DeleteInstance();
        CSmoothOpt::DeleteInstance();
        CRfactor::DeleteInstance();
    }
    std::string m_strReason;
};

TEST_F(Holders, StackKeepsAnglesAndFindsRanges)
{
    CProjData& rProjs = *CProjData::GetInstance();
    EXPECT_EQ(rProjs.GetProjs(), nullptr);
    rProjs.DetRangeX();
    ASSERT_TRUE(rProjs.HandleProjSize(Make({6, 5, 3}, {-10, 1, 20, 2}), m_strReason));
    EXPECT_EQ(rProjs.GetAngles()[1], 20);
    EXPECT_EQ(rProjs.GetDefocus()[1], 2);
    EXPECT_EQ(rProjs.GetAngles()[2], 0);  // not sent
    EXPECT_EQ(CSetOp::GetInstance()->GetNumIndices(), 3u);

    const float fMissing = -1e20f, fEdge = -1e15f, fNaN = std::numeric_limits<float>::quiet_NaN();
    const float aafRows[5][6] = {{fMissing, fMissing, fMissing, fMissing, fMissing, fMissing},
                                 {0, 0, 0, 0, 0, 0},
                                 {fMissing, 1, fMissing, 2, fMissing, fMissing},
                                 {fMissing, fMissing, fNaN, fMissing, fMissing, fMissing},
                                 {fMissing, fMissing, fMissing, fMissing, fMissing, fEdge}};
    std::copy_n(&aafRows[0][0], 30, rProjs.GetProjs()->GetSliceXY(1));
    rProjs.DetRangeX();
    // -1e15 as a float lies above -1e15 as a double.
    const std::vector<std::uint32_t> vuiExpected = {7, 0, 0, 6, 1, 4, 2, 3, 5, 6};
    const std::span<const std::uint32_t> auiRange = rProjs.GetRangeX();
    EXPECT_EQ(std::vector(auiRange.begin() + 10, auiRange.begin() + 20), vuiExpected);
    EXPECT_EQ(auiRange[0], 0u);
    EXPECT_EQ(auiRange[1], 6u);
}

TEST_F(Holders, CompareSumsDoNotDependOnTheOrderOfBands)
{
    CCompareSum& rSums = *CCompareSum::GetInstance();
    rSums.StopTimer();
    EXPECT_EQ(rSums.GetMilliseconds(), 0u);  // never started
    std::vector<int> viOrder = {0, 1, 2, 3};
    const float afDiff[] = {1e30f, 1e-3f, -1e30f, 7.0f};
    std::uint32_t uiFirst = 0;
    do
    {
        rSums.Reset();
        EXPECT_EQ(rSums.GetCount(), 0u);
        for (const int i : viOrder)
        {
            CCompareSum::Band aBand;
            aBand.iStartY = 10 * i;
            aBand.fSumDiff = afDiff[i];
            aBand.fCount = 250;
            rSums.Add(aBand);
        }
        EXPECT_EQ(rSums.GetCount(), std::bit_cast<std::uint32_t>(1000.0f));
        if (std::ranges::is_sorted(viOrder)) uiFirst = rSums.GetSumDiff();
        EXPECT_EQ(rSums.GetSumDiff(), uiFirst);
    } while (std::ranges::next_permutation(viOrder).found);
    rSums.StopTimer();
    EXPECT_LT(rSums.GetMilliseconds(), 10000u);
    CCompareSum::DeleteInstance();
}

TEST_F(Holders, RefuseWhatTheMachineCannotHold)
{
    // 2^31 - 1 voxels fit the limit; thousands of such volumes fit no machine.
    EXPECT_TRUE(CheckExtents("volume", 2147483647, 1, 1, m_strReason));
    EXPECT_FALSE(CheckMemory(0, std::uint64_t{1} << 50, m_strReason));
    EXPECT_NE(m_strReason.find("1073741824 MiB"), std::string::npos) << m_strReason;
    EXPECT_FALSE(CheckMemory(0, UINT64_MAX, m_strReason));
    EXPECT_TRUE(CheckMemory(0, 1000, m_strReason));
}

TEST_F(Holders, OptionsFollowTheMode)
{
    CReconOpt& rOpt = *CReconOpt::GetInstance();
    EXPECT_EQ(rOpt.GetReconCmd(), CReconCmd::BACKPROJ);  // before any RECONOPT
    EXPECT_EQ(rOpt.GetIterations(), 1u);
    ASSERT_TRUE(
        rOpt.HandleReconOpt(Make({1, 2, 3, 0, 9}, {0, 0, 0, 1, 2, 3, 4, 5, 6}), m_strReason));
    EXPECT_EQ(rOpt.GetReconCmd(), CReconCmd::SART);
    EXPECT_EQ(rOpt.GetRelax()[5], 6);
    EXPECT_EQ(rOpt.GetPosInterval(), 9u);
    ASSERT_TRUE(rOpt.HandleReconOpt(Make({3, 1, 1}, {0, 7}), m_strReason));
    EXPECT_EQ(rOpt.GetReconCmd(), CReconCmd::SART);  // stays
    EXPECT_EQ(rOpt.GetRelax().size(), 1u);
    EXPECT_FALSE(rOpt.HandleReconOpt(Make({2, 1, 1}, {0}), m_strReason));
    EXPECT_EQ(rOpt.GetReconCmd(), CReconCmd::SART);
    ASSERT_TRUE(rOpt.HandleReconOpt(Make({2, 0, 0}), m_strReason));
    EXPECT_EQ(rOpt.GetReconCmd(), CReconCmd::EM);
    ASSERT_TRUE(rOpt.HandleReconOpt(Make({0, 5, 5, 5, 5}, {1, 2}), m_strReason));
    EXPECT_EQ(rOpt.GetReconCmd(), CReconCmd::BACKPROJ);
    EXPECT_EQ(rOpt.GetIterations(), 1u);
    EXPECT_TRUE(rOpt.GetRelax().empty());
    // Ceilings of data follow the header, never beyond what can be used.
    EXPECT_EQ(CReconOpt::GetMaxReconOpt(Make({1, 3, 2})), 32u);
    EXPECT_EQ(CReconOpt::GetMaxReconOpt(Make({0, 3, 2})), 0u);
    EXPECT_EQ(CReconOpt::GetMaxReconOpt(Make({1, 0xffffffff, 0xffffffff})), 0u);
}

TEST_F(Holders, ListKernelAndBoxKeepWhatCame)
{
    CSetOp& rSet = *CSetOp::GetInstance();
    EXPECT_FALSE(rSet.HasList());
    ASSERT_TRUE(rSet.HandleSetOp(Make({1, 2}, {0, 0}), m_strReason));
    ASSERT_TRUE(rSet.HandleSetOp(Make({0, 9}, {1}), m_strReason));
    EXPECT_EQ(rSet.GetNumIndices(), 2u);
    EXPECT_FALSE(rSet.HandleSetOp(Make({1, 2}, {0}), m_strReason));
    EXPECT_EQ(rSet.GetNumIndices(), 2u);

    CSmoothOpt& rSmooth = *CSmoothOpt::GetInstance();
    EXPECT_EQ(rSmooth.GetKernel(), nullptr);
    ASSERT_TRUE(rSmooth.HandleSmoothOpt(Make({4, 3, 1, 1}, {1, 2, 3}), m_strReason));
    EXPECT_EQ(rSmooth.GetKernel()->GetData()[2], 3);
    EXPECT_FALSE(rSmooth.HandleSmoothOpt(Make({5, 256, 1, 1}, {}), m_strReason));
    EXPECT_EQ(rSmooth.GetInterval(), 4u);

    CWeightOpt& rWeight = *CWeightOpt::GetInstance();
    rWeight.HandleWeightOpt(Make({0, 1, 0, 0, 0x3F800000}));
    ASSERT_NE(rWeight.GetDim(), nullptr);
    EXPECT_EQ(rWeight.GetDim()[0], 1.0f);
    EXPECT_TRUE(rWeight.IsWeightProj());
    rWeight.HandleWeightOpt(Make({0, 0, 0, 0, 0x3F800000}));
    EXPECT_EQ(rWeight.GetDim(), nullptr);
    EXPECT_EQ(rWeight.GetOrig(), nullptr);
    CWeightOpt::DeleteInstance();
}

TEST_F(Holders, ResponsesAreBuiltFromThem)
{
    CVolData& rVolume = *CVolData::GetInstance();
    ASSERT_TRUE(rVolume.HandleVolSize(Make({2, 1, 3}), m_strReason));
    rVolume.GetNthSlice(2)[1] = 7;
    CRspUtil& rRspUtil = *CRspUtil::GetInstance();
    const struct
    {
        std::uint32_t uiType, uiWhich, uiBytes, uiStatus;
    } aCases[] = {{CMsgConst::VOLGET, 2, 8, 0},
                  {CMsgConst::VOLGET, 0, 0, 1},  // the last slice was the end of the volume
                  {CMsgConst::PROJGET, 0, 0, 1},
                  {CMsgConst::RECONSTATGET, 0, 0, 1},
                  {CMsgConst::SERVERPROP, 0, 0, 0},
                  {CMsgConst::VOLSIZE, 0, 0, 0}};
    for (std::uint32_t i = 0; i < std::size(aCases); ++i)
    {
        SCOPED_TRACE(i);
        CRemotePacket aRequest = Make({aCases[i].uiWhich});
        aRequest.SetMsgType(aCases[i].uiType);
        rRspUtil.CreateResponse(aRequest);
        ASSERT_EQ(rRspUtil.GetNumPackets(), 1);
        const CRemotePacket& rReply = *rRspUtil.GetNthPacket(0);
        EXPECT_EQ(rReply.GetSerial(), i);
        EXPECT_EQ(rReply.GetOptSize(), aCases[i].uiBytes);
        EXPECT_EQ(rReply.GetNthField(5), aCases[i].uiStatus);
    }
    EXPECT_EQ(rRspUtil.GetNthPacket(1), nullptr);
    rRspUtil.CreateResponse(Make({}));  // INVALID has no response
    EXPECT_EQ(rRspUtil.GetNumPackets(), 0);
    CRspUtil::DeleteInstance();
}

TEST_F(Holders, RfactorsAddUpOverWorkers)
{
    CRfactor& rRfactor = *CRfactor::GetInstance();
    EXPECT_TRUE(rRfactor.GetNthIteration(0).empty());
    EXPECT_EQ(rRfactor.GetRawFactor(0), 0);
    for (int iRun = 0; iRun < 2; ++iRun)  // every run starts from zero
    {
        rRfactor.SetSize(10, 3);
        std::vector<double> vdSums(60);
        for (std::size_t i = 0; i < 60; ++i) vdSums[i] = static_cast<double>(i);
        std::vector<std::thread> vWorkers;
        for (int i = 0; i < 4; ++i) vWorkers.emplace_back([&] { rRfactor.SetRfactor(vdSums); });
        for (std::thread& rWorker : vWorkers) rWorker.join();
    }
    EXPECT_EQ(rRfactor.GetNthIteration(2).at(1), 4 * 41.0f);
    EXPECT_EQ(rRfactor.GetNthIteration(2).size(), 20u);
    EXPECT_EQ(rRfactor.GetDifFactor(1), 4 * 10 * 30.0f);
    EXPECT_TRUE(rRfactor.GetNthIteration(3).empty());
    EXPECT_TRUE(rRfactor.GetNthIteration(-1).empty());
}
}  // namespace
