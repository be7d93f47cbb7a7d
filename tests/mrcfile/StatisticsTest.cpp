#include <gtest/gtest.h>

#include <cmath>

#include "Util/Util_Statistics.h"

TEST(Statistics, FollowTheModes)
{
    const unsigned char aucValues[] = {2, 4, 1, 255};
    const short asValues[] = {2, 4, -1, 3};
    const float afValues[] = {0.5f, -2, 0.5f, -2};
    const unsigned short ausValues[] = {2, 65535, 1, 3};
    EXPECT_EQ(Util_Statistics::Max(aucValues, 4, 0), 255);
    EXPECT_EQ(Util_Statistics::Min(asValues, 4, 1), -1);
    EXPECT_EQ(Util_Statistics::Mean(afValues, 4, 2), -0.75);
    EXPECT_EQ(Util_Statistics::Std(afValues, 4, 2), 1.25);
    EXPECT_EQ(Util_Statistics::Max(ausValues, 4, 6), 65535);
    EXPECT_EQ(Util_Statistics::Max(nullptr, 2, 3), 0);
    const int aiWide[] = {50000, 0};  // the square wraps
    EXPECT_TRUE(std::isnan(Util_Statistics::Std(aiWide, 2)));
    const float afWide[] = {1e30f, 0};
    EXPECT_TRUE(std::isinf(Util_Statistics::Std(afWide, 2)));
}
