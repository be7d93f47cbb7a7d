#include <gtest/gtest.h>

#include "Images.h"
#include "talven/ShiftSearch.h"

namespace talven::test
{
namespace
{

constexpr int g_iX = 101, g_iY = 83;

CShiftSearch::Probe CompareWith(const Image& rAligned, const Image& rMeasured)
{
    return [&rAligned, &rMeasured](double dX, double dY, CompareSums& rSums)
    {
        const std::vector<float> vfNumbers = {1, 0, 0, 1, float(dX), float(dY), 1, 0, 1e30f};
        const Image aMapped = MapImage(rMeasured, g_iX, g_iY, vfNumbers);
        rSums = SumImages(rAligned.vfPixels, aMapped.vfPixels);
        return true;
    };
}

TEST(ShiftSearch, FindsShiftsToATenthOfAPixel)
{
    const Image aAligned = MakeBlobs(g_iX, g_iY, 0, 0);
    const struct
    {
        int iRange;
        double dX, dY;
    } aCases[] = {{1, 0, 0}, {3, -2.3, 1.4}, {10, 7.5, -9.2}, {30, -22.7, 15.25}, {30, 0, 29}};
    for (const auto& [iRange, dX, dY] : aCases)
    {
        SCOPED_TRACE(testing::Message() << "range " << iRange << " shift " << dX << " " << dY);
        const Image aMeasured = MakeBlobs(g_iX, g_iY, dX, dY);
        CShiftSearch aSearch(iRange, 100, CompareWith(aAligned, aMeasured));
        ShiftMatch aMatch;
        ASSERT_EQ(aSearch.Run(aMatch), CShiftSearch::EResult::eFound);
        EXPECT_NEAR(aMatch.dX, dX, 0.1);
        EXPECT_NEAR(aMatch.dY, dY, 0.1);
        EXPECT_GT(aMatch.dCorrelation, 0.98);
        EXPECT_EQ(aMatch.dCorrelation, CalcCorrelation(aMatch.aSums));
        EXPECT_FALSE(aMatch.bAtEdge);
    }
}

TEST(ShiftSearch, SaysWhenTheShiftIsOutOfRange)
{
    const Image aAligned = MakeBlobs(g_iX, g_iY, 0, 0);
    const Image aMeasured = MakeBlobs(g_iX, g_iY, 3.5, 0);
    CShiftSearch aSearch(2, 100, CompareWith(aAligned, aMeasured));
    ShiftMatch aMatch;
    ASSERT_EQ(aSearch.Run(aMatch), CShiftSearch::EResult::eFound);
    EXPECT_TRUE(aMatch.bAtEdge);
    EXPECT_EQ(aMatch.dX, 2);
}

TEST(ShiftSearch, NothingToCompareIsNoMatch)
{
    const Image aAligned = MakeBlobs(g_iX, g_iY, 0, 0);
    const Image aConstant = {g_iX, g_iY, std::vector<float>(aAligned.vfPixels.size(), 3)};
    ShiftMatch aMatch;
    EXPECT_EQ(CShiftSearch(5, 100, CompareWith(aAligned, aConstant)).Run(aMatch),
              CShiftSearch::EResult::eNothing);
    EXPECT_EQ(CShiftSearch(5, 1e9, CompareWith(aAligned, aAligned)).Run(aMatch),
              CShiftSearch::EResult::eNothing);

    int iProbes = 0;
    const auto Fail = [&iProbes](double, double, CompareSums&) { return ++iProbes < 7; };
    EXPECT_EQ(CShiftSearch(5, 0, Fail).Run(aMatch), CShiftSearch::EResult::eEnded);
    EXPECT_EQ(iProbes, 7) << "it went on";
}

}  // namespace
}  // namespace talven::test
