#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <limits>
#include <thread>

#include "Util/Util_Memory.h"
#include "server/Data/Recon/CompareSum.h"
#include "server/Data/Recon/HolderMemory.h"
#include "server/Data/Recon/ProjData.h"
#include "server/Data/Recon/Rfactor.h"
#include "server/Data/Recon/VolData.h"
#include "server/Data/RemotePacket.h"

namespace
{
CRemotePacket Make(std::uint32_t uiX, std::uint32_t uiY, std::uint32_t uiZ)
{
    CRemotePacket aPacket;
    aPacket.SetNthField(4, uiX);
    aPacket.SetNthField(5, uiY);
    aPacket.SetNthField(6, uiZ);
    return aPacket;
}

TEST(ProjData, FindsTheRangesOfValidColumns)
{
    CProjData& rProjs = *CProjData::GetInstance();
    rProjs.DetRangeX();  // of nothing
    const CRemotePacket aSize = Make(6, 5, 2);
    std::string strReason;
    ASSERT_TRUE(rProjs.HandleProjSize(aSize).DoIt(aSize, strReason));
    const float fMissing = -1e20f, fEdge = -1e15f, fNaN = std::numeric_limits<float>::quiet_NaN();
    const float aafRows[5][6] = {{fMissing, fMissing, fMissing, fMissing, fMissing, fMissing},
                                 {0, 0, 0, 0, 0, 0},
                                 {fMissing, 1, fMissing, 2, fMissing, fMissing},
                                 {fMissing, fMissing, fNaN, fMissing, fMissing, fMissing},
                                 {fMissing, fMissing, fMissing, fMissing, fMissing, fEdge}};
    std::copy_n(&aafRows[0][0], 30, rProjs.GetProjs()->GetSliceXY(1));
    rProjs.DetRangeX();
    // -1e15 as a float lies above -1e15 as a double.
    const std::vector<std::uint32_t> vuiExpected = {0, 6, 0, 6, 0, 6, 0, 6, 0, 6,
                                                    7, 0, 0, 6, 1, 4, 2, 3, 5, 6};
    EXPECT_TRUE(std::ranges::equal(std::as_const(rProjs).GetRangeX(), vuiExpected));
    CProjData::DeleteInstance();
}

TEST(CompareSum, DoesNotDependOnTheOrderOfBands)
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
    CCompareSum::DeleteInstance();
}

TEST(HolderMemory, CountsAllHolders)
{
    std::string strReason;
    for (const std::uint64_t ulBytes : {std::uint64_t{1} << 50, UINT64_MAX})
        EXPECT_FALSE(CheckMemory(0, ulBytes, strReason));
    constexpr std::size_t tStack = 3 * (4 * 50 * 20 + 8 * 20 + 8), tVolume = 4 * 10 * 20 * 30;
    Util_Memory::Assume(tStack + tVolume);
    for (const auto& [uiX, bFits] : {std::pair(51u, false), {50u, true}})
    {
        const CRemotePacket aVolume = Make(10, 20, 30), aStack = Make(uiX, 20, 3);
        EXPECT_TRUE(CVolData::GetInstance()->HandleVolSize(aVolume).DoIt(aVolume, strReason));
        EXPECT_EQ(CProjData::GetInstance()->HandleProjSize(aStack).DoIt(aStack, strReason), bFits);
    }
    EXPECT_TRUE(CheckMemory(tVolume, tVolume, strReason));
    EXPECT_FALSE(CheckMemory(tVolume, tVolume + 1, strReason));
    Util_Memory::Assume(0);
    CVolData::DeleteInstance();
    CProjData::DeleteInstance();
}

TEST(Rfactor, AddsUpOverWorkers)
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
    for (const short s : {-1, 3}) EXPECT_TRUE(rRfactor.GetNthIteration(s).empty());
    CRfactor::DeleteInstance();
}
}  // namespace
