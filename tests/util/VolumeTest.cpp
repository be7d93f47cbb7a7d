#include "Util/Util_Volume.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <span>

namespace
{
/// A volume whose sample (x, y, z) is x + 10 y + 100 z + 1.
void Fill(Util_Volume& rVolume, int iX, int iY, int iZ)
{
    rVolume.SetSize(iX, iY, iZ);
    for (int i = 0; i < iX * iY * iZ; ++i)
        rVolume.GetData()[i] = float(1 + i % iX + 10 * (i / iX % iY) + 100 * (i / iX / iY));
}

TEST(Volume, LinesAndSlicesTouchTheirSamplesOnly)
{
    Util_Volume aVolume;
    EXPECT_TRUE(!aVolume.GetSliceXY(0) && aVolume.GetLineY(0, 0).empty());
    Fill(aVolume, 3, 4, 5);
    EXPECT_EQ(aVolume.GetLineX(2, 3), (std::vector<float>{321, 322, 323}));
    EXPECT_EQ(aVolume.GetLineY(1, 4), (std::vector<float>{402, 412, 422, 432}));
    EXPECT_EQ(aVolume.GetLineZ(2, 1), (std::vector<float>{13, 113, 213, 313, 413}));
    std::vector<float> vf(3 * 5);
    aVolume.GetSliceXZ(vf.data(), 1);
    EXPECT_EQ(vf[3 * 4 + 2], 413);
    aVolume.SetSliceXZ(vf.data(), 3);
    EXPECT_EQ(aVolume.GetLineZ(2, 3), aVolume.GetLineZ(2, 1));
    std::ranges::fill(vf, -1);
    aVolume.SetLineX(vf.data(), 0, 0);
    aVolume.SetLineY(vf.data(), 1, 2);
    aVolume.SetLineZ(vf.data(), 2, 3);
    for (const auto& rLine :
         {aVolume.GetLineX(0, 0), aVolume.GetLineY(1, 2), aVolume.GetLineZ(2, 3)})
        EXPECT_EQ(rLine, std::vector(rLine.size(), -1.0f));
    EXPECT_EQ(std::count(aVolume.GetData(), aVolume.GetData() + 60, -1), 3 + 4 + 5);
}

/// Boxes at random places, inside, across and outside the borders, against a plain loop.
TEST(Volume, ClipsBoxes)
{
    std::mt19937 aRandom(7);  // NOLINT: the same boxes every time
    for (int iRound = 0; iRound < 200; ++iRound)
    {
        Util_Volume aVolume, aBox;
        std::array<int, 3> aiStart, aiSize;
        for (int& rStart : aiStart) rStart = static_cast<int>(aRandom() % 13) - 6;
        for (int& rSize : aiSize) rSize = static_cast<int>(aRandom() % 7) + 1;
        Fill(aVolume, 4, 5, 3);
        std::vector<float> vfWanted(aVolume.GetData(), aVolume.GetData() + 60);
        aBox.SetSize(aiSize[0], aiSize[1], aiSize[2]);
        aVolume.GetSubVolume(aiStart.data(), aBox);
        for (int i = 0; i < int(aBox.GetVoxels()); ++i)
        {
            const int iX = aiStart[0] + i % aiSize[0], iY = aiStart[1] + i / aiSize[0] % aiSize[1];
            const int iZ = aiStart[2] + i / aiSize[0] / aiSize[1];
            const bool bIn = iX >= 0 && iX < 4 && iY >= 0 && iY < 5 && iZ >= 0 && iZ < 3;
            ASSERT_EQ(aBox.GetData()[i], bIn ? 1 + iX + 10 * iY + 100 * iZ : 0);
            aBox.GetData()[i] = -1.0f;
            if (bIn) vfWanted[(iZ * 5 + iY) * 4 + iX] = -1.0f;
        }
        aVolume.SetSubVolume(aiStart.data(), aBox);
        ASSERT_TRUE(std::ranges::equal(vfWanted, std::span(aVolume.GetData(), 60)));
    }
}
}  // namespace
