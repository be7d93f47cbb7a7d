#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "Util/Util_Statistics.h"

TEST(Statistics, FollowTheModes)
{
    const unsigned char aucValues[] = {2, 4, 1, 255};
    const short asValues[] = {2, 4, -1, 3};
    const float afValues[] = {0.5f, -2, 0.5f, -2};
    const unsigned short ausValues[] = {2, 65535, 1, 3};
    EXPECT_EQ(Util_Statistics::Max(aucValues, 4, 0), 255);
    EXPECT_EQ(Util_Statistics::Min(asValues, 4, 1), -1);
    EXPECT_EQ(Util_Statistics::Mean(asValues, 4, 1), 2);
    EXPECT_EQ(Util_Statistics::Mean(afValues, 4, 2), -0.75);
    EXPECT_EQ(Util_Statistics::Std(afValues, 4, 2), 1.25);
    EXPECT_EQ(Util_Statistics::Max(ausValues, 4, 6), 65535);
    EXPECT_EQ(Util_Statistics::Min(ausValues, 4, 6), 1);
    for (const int iMode : {-1, 3, 7, 8}) EXPECT_EQ(Util_Statistics::Max(nullptr, 2, iMode), 0);
}

TEST(Statistics, SquaresKeepTheirArithmetic)
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
