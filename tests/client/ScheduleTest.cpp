#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>

#include "talven/Schedule.h"

namespace talven::test
{
namespace
{

TEST(Schedule, DividesAsEvenlyAsPossible)
{
    EXPECT_EQ(DivideIntoSubsets(61, 4), (std::vector<std::uint32_t>{16, 15, 15, 15}));
    EXPECT_EQ(DivideIntoSubsets(3, 3), (std::vector<std::uint32_t>{1, 1, 1}));
}

TEST(Schedule, EverySubsetSpreadsOverTheTiltRange)
{
    // 61 views from -60 to 60 in the order in which microscopes record them: any.
    std::vector<float> vfAngles(61);
    for (int i = 0; i < 61; ++i) vfAngles[std::size_t(i)] = static_cast<float>(-60 + 2 * i);
    std::shuffle(vfAngles.begin(), vfAngles.end(), std::mt19937(1));
    std::vector<std::uint32_t> vuiAll(61);
    std::iota(vuiAll.begin(), vuiAll.end(), 0u);

    for (const std::vector<std::uint32_t>& rSizes :
         {DivideIntoSubsets(61, 1), DivideIntoSubsets(61, 4), DivideIntoSubsets(61, 10),
          DivideIntoSubsets(61, 61), std::vector<std::uint32_t>{30, 20, 11}})
    {
        SCOPED_TRACE(testing::Message() << rSizes.size() << " subsets");
        const std::vector<std::uint32_t> vuiList = InterleaveSubsets(vuiAll, vfAngles, rSizes);
        ASSERT_TRUE(
            std::is_permutation(vuiList.begin(), vuiList.end(), vuiAll.begin(), vuiAll.end()));
        std::size_t tFirst = 0;
        for (const std::uint32_t uiSize : rSizes)
        {
            std::vector<float> vfSet;
            for (std::size_t i = tFirst; i < tFirst + uiSize; ++i)
                vfSet.push_back(vfAngles[vuiList[i]]);
            tFirst += uiSize;
            std::sort(vfSet.begin(), vfSet.end());
            // Neighbours in a subset are at most twice the even spacing apart.
            for (std::size_t i = 1; i < vfSet.size(); ++i)
                EXPECT_LE(vfSet[i] - vfSet[i - 1], 2 * 122.0f / float(uiSize));
        }
    }
}

TEST(Schedule, SingleViewsJumpAcrossTheRange)
{
    const std::vector<float> vfAngles = {0, 10, 20, 30, 40, 50, 60, 70};
    const std::vector<std::uint32_t> vuiAll = {0, 1, 2, 3, 4, 5, 6, 7};
    EXPECT_EQ(InterleaveSubsets(vuiAll, vfAngles, DivideIntoSubsets(8, 8)),
              (std::vector<std::uint32_t>{0, 4, 2, 6, 1, 5, 3, 7}));
}

}  // namespace
}  // namespace talven::test
