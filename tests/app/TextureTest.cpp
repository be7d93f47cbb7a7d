#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "Util/Util_Volume.h"
#include "gpulib/App/Images/RowBatch.h"
#include "gpulib/App/Images/Textures.h"
#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"

namespace
{
class Texture : public testing::Test
{
protected:
    Texture() { SetBackend(MakeHostBackend("", 1)); }
    static std::vector<float> mTable(const DeviceImage& rImage)
    {
        std::vector<float> vfValues(std::size_t(rImage.iWidth) * rImage.iHeight * rImage.iChannels);
        EXPECT_TRUE(GetBackend()->DownloadTable(rImage, vfValues.data()));
        return vfValues;
    }
};
}  // namespace

TEST_F(Texture, AnglesAreExactAtTheAxes)
{
    const std::vector<float> vfAngles = {0, 90, -60};
    CAnglesTexture aTexture;
    ASSERT_TRUE(aTexture.Create(3));
    ASSERT_TRUE(aTexture.SetData(vfAngles));
    const std::vector<float> vfPairs = mTable(aTexture.GetImage());
    EXPECT_EQ(vfPairs[0], 1.0f);
    EXPECT_EQ(vfPairs[1], 0.0f);
    EXPECT_EQ(vfPairs[2], 0.0f);
    EXPECT_EQ(vfPairs[3], 1.0f);
    EXPECT_FLOAT_EQ(vfPairs[4], 0.5f);
    EXPECT_FLOAT_EQ(vfPairs[5], -0.8660254f);

    EXPECT_FALSE(aTexture.SetData(std::span(vfAngles).first(2)));
    EXPECT_EQ(TakeDeviceError(), "tilt angles: 2 given, 3 needed");
}

TEST_F(Texture, RangesOfTheBandOnly)
{
    std::vector<unsigned> vuiRanges(2 * 3 * 7);  // 3 projections of 7 rows
    std::iota(vuiRanges.begin(), vuiRanges.end(), 0U);
    CRangeTexture aTexture;
    ASSERT_TRUE(aTexture.Create(2, 3));
    ASSERT_TRUE(aTexture.SetData(vuiRanges, 7, 5));
    EXPECT_EQ(mTable(aTexture.GetImage()),
              (std::vector<float>{10, 11, 12, 13, 24, 25, 26, 27, 38, 39, 40, 41}));
}

// A batch of 2 slices of a volume of 3 x 4 x 2, and back.
TEST_F(Texture, SlicesLieInAFrameOfZeros)
{
    Util_Volume aVolume, aOther;
    aVolume.SetSize(3, 4, 2);
    aOther.SetSize(3, 4, 2);
    std::iota(aVolume.GetData(), aVolume.GetData() + 24, 1.0f);
    CVolTexture aTexture;
    ASSERT_TRUE(aTexture.Create(3, 2, 2));
    ASSERT_TRUE(aTexture.SetData(GetBatch(std::as_const(aVolume), 1, 2)));

    std::vector<float> vfFramed(5 * 4);  // of the first lane, row 1 of the volume
    const HostRows<float> aRows = {vfFramed.data(), 5, 0, 1};
    ASSERT_TRUE(GetBackend()->Download(aTexture.GetImage(), aRows, 0, 0, 5, 4));
    EXPECT_EQ(vfFramed, (std::vector<float>{0, 0,  0,  0,  0, 0, 4, 5, 6, 0,  //
                                            0, 16, 17, 18, 0, 0, 0, 0, 0, 0}));

    ASSERT_TRUE(aTexture.StartToHost(GetBatch(aOther, 1, 2)) && GetBackend()->FinishDownload());
    for (int i = 0; i < 24; ++i)
    {
        const int iY = i / 3 % 4;
        EXPECT_EQ(aOther.GetData()[i], iY == 1 || iY == 2 ? float(i + 1) : 0.0f) << i;
    }
}
