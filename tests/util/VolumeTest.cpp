#include "Util/Util_Volume.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <numeric>
#include <span>

TEST(Volume, LinesAndSlicesTouchTheirSamplesOnly)
{
    Util_Volume aVolume;
    EXPECT_TRUE(aVolume.GetLineY(0, 0).empty() && aVolume.GetSliceXY(0) == nullptr);
    aVolume.SetSize(2, 3, 2);
    const std::span fVoxels(aVolume.GetData(), 12);
    std::iota(fVoxels.begin(), fVoxels.end(), 0.0f);
    using Line = std::vector<float>;
    EXPECT_EQ(aVolume.GetLineX(1, 0), (Line{2, 3}));
    EXPECT_EQ(aVolume.GetLineY(1, 1), (Line{7, 9, 11}));
    EXPECT_EQ(aVolume.GetLineZ(0, 1), (Line{2, 8}));
    const Line vfNew = {-1, -2, -3, -4};
    aVolume.SetLineX(vfNew.data(), 0, 1);
    aVolume.SetLineY(vfNew.data(), 0, 0);
    aVolume.SetLineZ(vfNew.data(), 1, 1);
    EXPECT_TRUE(std::ranges::equal(fVoxels, Line{-1, 1, -2, -1, -3, 5, -1, -2, 8, -2, 10, 11}));
    Line vfSlice(4);
    aVolume.GetSliceXZ(vfSlice.data(), 2);
    EXPECT_EQ(vfSlice, (Line{-3, 5, 10, 11}));
    aVolume.SetSliceXZ(vfNew.data(), 1);
    EXPECT_TRUE(std::ranges::equal(fVoxels, Line{-1, 1, -1, -2, -3, 5, -1, -2, -3, -4, 10, 11}));
}

TEST(Volume, ClipsBoxes)
{
    Util_Volume aVolume, aBox;
    aVolume.SetSize(4, 5, 3);
    for (const std::array<int, 3> aiStart :
         {std::array{1, 1, 0}, {-2, -1, -1}, {2, 3, 1}, {9, 0, 0}})
    {
        const std::span fVoxels(aVolume.GetData(), 60);
        std::iota(fVoxels.begin(), fVoxels.end(), 1.0f);
        std::vector<float> vfWanted(fVoxels.begin(), fVoxels.end());
        aBox.DeleteVolume();
        aBox.SetSize(3, 4, 3);
        aVolume.GetSubVolume(aiStart.data(), aBox);
        for (int i = 0; i < 36; ++i)
        {
            const int iX = aiStart[0] + i % 3, iZ = aiStart[2] + i / 12;
            const int iY = aiStart[1] + i / 3 % 4;
            const bool bIn = iX >= 0 && iX < 4 && iY >= 0 && iY < 5 && iZ >= 0 && iZ < 3;
            const int iVoxel = (iZ * 5 + iY) * 4 + iX;
            ASSERT_EQ(aBox.GetData()[i], bIn ? 1 + iVoxel : 0);
            aBox.GetData()[i] = -1;
            if (bIn) vfWanted[iVoxel] = -1;
        }
        aVolume.SetSubVolume(aiStart.data(), aBox);
        EXPECT_TRUE(std::ranges::equal(vfWanted, fVoxels));
    }
}
