#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <limits>

#include "server/Data/Recon/CompareSum.h"
#include "server/Data/Recon/ProjData.h"
#include "server/Data/Recon/Rfactor.h"
#include "server/Data/RemotePacket.h"

namespace
{
TEST(ProjData, FindsTheRangesOfValidColumns)
{
    CProjData& rProjs = *CProjData::GetInstance();
    rProjs.DetRangeX();  // of nothing
    CRemotePacket aSize;
    for (const auto& [n, ui] : {std::pair(4, 3u), {5, 6u}, {6, 2u}}) aSize.SetNthField(n, ui);
    std::string strReason;
    ASSERT_TRUE(rProjs.HandleProjSize(aSize).DoIt(aSize, strReason));
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

TEST(CompareSum, DoesNotDependOnTheOrderOfBands)
{
    CCompareSum& rSums = *CCompareSum::GetInstance();
    rSums.StopTimer();
    EXPECT_EQ(rSums.GetMilliseconds(), 0u);  // never started
    const float afDiff[] = {1e30f, 1e-3f, -1e30f, 7.0f};
    std::vector<int> viOrder = {0, 1, 2, 3};
    do
    {
        rSums.Reset();
        EXPECT_EQ(rSums.GetCount(), 0u);
        for (const int i : viOrder)
            rSums.Add({.iStartY = 10 * i, .fSumDiff = afDiff[i], .fCount = 250});
        EXPECT_EQ(rSums.GetCount(), std::bit_cast<std::uint32_t>(1000.0f));
        EXPECT_EQ(rSums.GetSumDiff(), std::bit_cast<std::uint32_t>(7.0f));
    } while (std::ranges::next_permutation(viOrder).found);
    CCompareSum::DeleteInstance();
}

TEST(Rfactor, SumsOverProjections)
{
    CRfactor& rRfactor = *CRfactor::GetInstance();
    EXPECT_EQ(rRfactor.GetRawFactor(0), 0);
    rRfactor.SetSize(2, 3);
    const std::vector<double> vdSums = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
    for (int i = 0; i < 2; ++i) rRfactor.SetRfactor(vdSums);
    EXPECT_EQ(rRfactor.GetRawFactor(1), 2 * (4 + 6));
    EXPECT_EQ(rRfactor.GetDifFactor(2), 2 * (9 + 11));
    for (const int i : {-1, 3}) EXPECT_EQ(rRfactor.GetDifFactor(i), 0);
    CRfactor::DeleteInstance();
}
}  // namespace
