#include "Util/Util_Volume.h"

#include <gtest/gtest.h>

#include <array>
#include <numeric>
#include <random>

namespace
{
/// A volume whose sample (x, y, z) is x + 10 y + 100 z.
void Fill(Util_Volume& rVolume, int iX, int iY, int iZ)
{
    rVolume.SetSize(iX, iY, iZ);
    for (int z = 0; z < iZ; ++z)
        for (int y = 0; y < iY; ++y)
            for (int x = 0; x < iX; ++x)
                rVolume.GetSliceXY(z)[y * iX + x] = static_cast<float>(x + 10 * y + 100 * z);
}

float At(const Util_Volume& rVolume, int x, int y, int z)
{
    return rVolume.GetSliceXY(z)[y * rVolume.GetSizeX() + x];
}

TEST(Volume, IsEmptyUntilItHasVoxels)
{
    Util_Volume aVolume;
    EXPECT_EQ(aVolume.GetVoxels(), 0u);
    EXPECT_EQ(aVolume.GetSliceXY(0), nullptr);
    EXPECT_TRUE(aVolume.GetLineY(0, 0).empty());
    aVolume.SetZero();
    aVolume.SetSize(0, 5, 6);
    EXPECT_EQ(aVolume.GetData(), nullptr);
}

TEST(Volume, KeepsSamplesWhileTheCountStays)
{
    Util_Volume aVolume;
    Fill(aVolume, 4, 8, 2);
    const float* pfData = aVolume.GetData();
    aVolume.SetSize(8, 4, 2);
    EXPECT_EQ(aVolume.GetData(), pfData);
    EXPECT_EQ(At(aVolume, 5, 0, 0), 11);  // was (1, 1, 0)
    aVolume.SetSize(8, 4, 3);
    EXPECT_EQ(std::accumulate(aVolume.GetData(), aVolume.GetData() + 96, 0.0f), 0);
}

TEST(Volume, LimitsTheProductBelowTwoToThe31)
{
    EXPECT_TRUE(Util_Volume::FitsVoxelLimit(2147483647, 1, 1));
    EXPECT_TRUE(Util_Volume::FitsVoxelLimit(1290, 1290, 1290));
    EXPECT_FALSE(Util_Volume::FitsVoxelLimit(2048, 1024, 1024));
    EXPECT_FALSE(Util_Volume::FitsVoxelLimit(1LL << 31, 1, 1));
    EXPECT_FALSE(Util_Volume::FitsVoxelLimit(4294967295, 4294967295, 4294967295));
    EXPECT_FALSE(Util_Volume::FitsVoxelLimit(-1, 4, 4));
    EXPECT_TRUE(Util_Volume::FitsVoxelLimit(4294967295 / 4, 0, 7));
}

TEST(Volume, LinesAndSlicesTouchTheirSamplesOnly)
{
    Util_Volume aVolume;
    Fill(aVolume, 3, 4, 5);
    EXPECT_EQ(aVolume.GetLineX(2, 3), (std::vector<float>{320, 321, 322}));
    EXPECT_EQ(aVolume.GetLineY(1, 4), (std::vector<float>{401, 411, 421, 431}));
    EXPECT_EQ(aVolume.GetLineZ(2, 1), (std::vector<float>{12, 112, 212, 312, 412}));

    const std::vector<float> vfLine = {-1, -2, -3, -4, -5};
    aVolume.SetLineX(vfLine.data(), 0, 0);
    aVolume.SetLineY(vfLine.data(), 1, 2);
    aVolume.SetLineZ(vfLine.data(), 2, 3);
    EXPECT_EQ(aVolume.GetLineX(0, 0), (std::vector<float>{-1, -2, -3}));
    EXPECT_EQ(aVolume.GetLineY(1, 2), (std::vector<float>{-1, -2, -3, -4}));
    EXPECT_EQ(aVolume.GetLineZ(2, 3), vfLine);
    int iChanged = 0;
    for (int i = 0; i < 60; ++i) iChanged += aVolume.GetData()[i] < 0 ? 1 : 0;
    EXPECT_EQ(iChanged, 3 + 4 + 5);

    std::vector<float> vfSlice(3 * 5);
    aVolume.GetSliceXZ(vfSlice.data(), 1);
    EXPECT_EQ(vfSlice[3 * 4 + 2], 412);
    Util_Volume aOther;
    aOther.SetSize(3, 4, 5);
    aOther.SetSliceXZ(vfSlice.data(), 1);
    EXPECT_EQ(At(aOther, 2, 1, 4), 412);
    EXPECT_EQ(At(aOther, 2, 2, 4), 0);
}

/// Boxes at random places, inside, across and outside the borders, against a plain loop.
TEST(Volume, ClipsBoxes)
{
    std::mt19937 aRandom(7);  // NOLINT: the same boxes every time
    for (int iRound = 0; iRound < 200; ++iRound)
    {
        Util_Volume aVolume, aBox;
        Fill(aVolume, 4, 5, 3);
        std::array<int, 3> aiStart, aiSize;
        for (int i = 0; i < 3; ++i)
        {
            aiStart[i] = static_cast<int>(aRandom() % 13) - 6;
            aiSize[i] = static_cast<int>(aRandom() % 7) + 1;
        }
        aBox.SetSize(aiSize[0], aiSize[1], aiSize[2]);
        std::fill_n(aBox.GetData(), aBox.GetVoxels(), -7.0f);
        aVolume.GetSubVolume(aiStart.data(), aBox);
        for (int z = 0; z < aiSize[2]; ++z)
            for (int y = 0; y < aiSize[1]; ++y)
                for (int x = 0; x < aiSize[0]; ++x)
                {
                    const int iX = x + aiStart[0], iY = y + aiStart[1], iZ = z + aiStart[2];
                    const bool bInside =
                        iX >= 0 && iX < 4 && iY >= 0 && iY < 5 && iZ >= 0 && iZ < 3;
                    ASSERT_EQ(At(aBox, x, y, z), bInside ? iX + 10 * iY + 100 * iZ : -7);
                    if (bInside) aBox.GetSliceXY(z)[y * aiSize[0] + x] += 1000;
                }
        aVolume.SetSubVolume(aiStart.data(), aBox);
        for (int z = 0; z < 3; ++z)
            for (int y = 0; y < 5; ++y)
                for (int x = 0; x < 4; ++x)
                {
                    const bool bInBox = x >= aiStart[0] && x < aiStart[0] + aiSize[0] &&
                                        y >= aiStart[1] && y < aiStart[1] + aiSize[1] &&
                                        z >= aiStart[2] && z < aiStart[2] + aiSize[2];
                    ASSERT_EQ(At(aVolume, x, y, z), x + 10 * y + 100 * z + (bInBox ? 1000 : 0));
                }
    }
}

TEST(Volume, BandsOfRowsGoOutAndComeBack)
{
    Util_Volume aVolume;
    Fill(aVolume, 3, 6, 2);
    const auto pBand = aVolume.GetSubVolumeY(2, 3);
    EXPECT_EQ(At(*pBand, 1, 0, 1), 121);
    const auto pColumns = aVolume.GetSubVolumeX(1, 2);
    EXPECT_EQ(At(*pColumns, 0, 5, 1), 151);
    pBand->SetZero();
    aVolume.SetSubVolumeY(*pBand, 4);  // does not fit below row 4: nothing happens
    EXPECT_EQ(At(aVolume, 0, 5, 0), 50);
    aVolume.SetSubVolumeY(*pBand, 3);
    EXPECT_EQ(At(aVolume, 0, 5, 0), 0);
    EXPECT_EQ(At(aVolume, 0, 2, 0), 20);
    pColumns->SetZero();
    aVolume.SetSubVolumeX(*pColumns, 0);
    EXPECT_EQ(At(aVolume, 1, 1, 1), 0);
    EXPECT_EQ(At(aVolume, 2, 1, 1), 112);
}
}  // namespace
