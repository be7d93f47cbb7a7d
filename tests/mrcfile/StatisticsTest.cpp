#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "Util/Util_Statistics.h"

namespace
{
template <class T>
class Statistics : public testing::Test
{
};
using Types =
    testing::Types<char, unsigned char, short, unsigned short, int, unsigned int, float, double>;
TYPED_TEST_SUITE(Statistics, Types);

TYPED_TEST(Statistics, OfFourValues)
{
    const TypeParam aValues[] = {2, 4, 1, 3};
    EXPECT_DOUBLE_EQ(Util_Statistics::Mean(aValues, 4), 2.5);
    EXPECT_EQ(Util_Statistics::Max(aValues, 4), 4);
    EXPECT_EQ(Util_Statistics::Min(aValues, 4), 1);
    EXPECT_DOUBLE_EQ(Util_Statistics::Std(aValues, 4), std::sqrt(1.25));
    EXPECT_EQ(Util_Statistics::Max(aValues, 1), 2);
}
}  // namespace

TEST(StatisticsSquares, KeepTheirArithmetic)
{
    const int aiWide[] = {50000, 0};  // the square wraps
    EXPECT_TRUE(std::isnan(Util_Statistics::Std(aiWide, 2)));
    const unsigned int auiWide[] = {65536, 65536};
    EXPECT_TRUE(std::isnan(Util_Statistics::Std(auiWide, 2)));
    const short asWide[] = {std::numeric_limits<short>::min(), 32767};
    EXPECT_NEAR(Util_Statistics::Std(asWide, 2), 32767.5, 1e-6);
    const float afWide[] = {1e30f, 0};
    EXPECT_TRUE(std::isinf(Util_Statistics::Std(afWide, 2)));
}

TEST(StatisticsModes, ChooseTheType)
{
    const unsigned short ausValues[] = {1, 65535};
    const short asValues[] = {1, -1};
    const unsigned char aucValues[] = {1, 255};
    const float afValues[] = {0.5f, -2};
    EXPECT_EQ(Util_Statistics::Max(aucValues, 2, 0), 255);
    EXPECT_EQ(Util_Statistics::Min(asValues, 2, 1), -1);
    EXPECT_EQ(Util_Statistics::Mean(afValues, 2, 2), -0.75);
    EXPECT_EQ(Util_Statistics::Std(afValues, 2, 2), 1.25);
    EXPECT_EQ(Util_Statistics::Max(ausValues, 2, 6), 65535);
    for (const int iMode : {-1, 3, 7, 8}) EXPECT_EQ(Util_Statistics::Max(nullptr, 2, iMode), 0);
}
