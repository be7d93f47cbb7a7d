// Owners of device memory, and copies between host rows and batches.

#include <array>
#include <numeric>

#include "gpulib/Device/DeviceArray3D.h"
#include "gpulib/Device/PitchedPtr3D.h"
#include "tests/device/Rig.h"

using Memory = Kernel;
INSTANTIATE_TEST_SUITE_P(Backends, Memory, testing::ValuesIn(GetTestBackends()),
                         [](const auto& rInfo) { return NameOf(rInfo.param); });

TEST_P(Memory, RectanglesComeBackAndTheRestIsZero)
{
    for (const int iLanes : {1, 2, 4, 5, 8, 9, 15, 16, 17, 32})
        for (const auto& [iWidth, iHeight] : {std::pair{1, 1}, {3, 2}, {16, 5}, {67, 3}, {130, 2}})
        {
            SCOPED_TRACE(testing::Message() << iLanes << " rows of " << iWidth << " x " << iHeight);
            const Image aIn = RandomImage(iWidth, iHeight, iLanes, 1, 2);
            CDeviceArray2D aArray;
            Rig::Fill(aArray, aIn, 2);
            Image aOut(iWidth, iHeight, iLanes), aAll(iWidth + 4, iHeight + 4, iLanes);
            ASSERT_TRUE(aArray.ToHost(aOut.Borrow(), 2, 2, iWidth, iHeight));
            EXPECT_TRUE(SameBits(aIn.vf, aOut.vf));
            ASSERT_TRUE(aArray.ToHost(aAll.Borrow(), 0, 0, iWidth + 4, iHeight + 4));
            const auto Sum = [](const Image& rImage)
            { return std::accumulate(rImage.vf.begin(), rImage.vf.end(), 0.0); };
            EXPECT_NEAR(Sum(aAll), Sum(aIn), 1e-9);  // values are at least 1: nothing else is set

            // Fewer rows than lanes: the lanes without a row become 0.
            if (iLanes == 1) continue;
            const Image aOne = aIn.Rows(0, 1);
            ASSERT_TRUE(aArray.HostToDevice(aOne.Borrow(), 2, 2, iWidth, iHeight));
            ASSERT_TRUE(aArray.ToHost(aOut.Borrow(), 2, 2, iWidth, iHeight));
            EXPECT_NEAR(Sum(aOut), Sum(aOne), 1e-9);
        }
}

TEST_P(Memory, TablesInterleavePairs)
{
    const std::vector<float> vfA = {0, 1, 2, 3, 4, 5}, vfB = {10, 11, 12, 13, 14, 15};
    CDeviceArray2D aPairs;
    aPairs.SetChannels(2);
    ASSERT_TRUE(aPairs.Create(3, 2));
    ASSERT_TRUE(aPairs.HostToDevice(vfA.data(), vfB.data()));
    float afGot[12];
    ASSERT_TRUE(GetBackend()->DownloadTable(aPairs.GetImage(), afGot));
    for (int i = 0; i < 6; ++i)
    {
        EXPECT_EQ(afGot[2 * i], vfA[i]);
        EXPECT_EQ(afGot[2 * i + 1], vfB[i]);
    }
}

TEST_P(Memory, BuffersClearCopyAndFree)
{
    const std::vector<float> vfIn = {1, 2, 3, 4, 5, 6};
    CDeviceArray3D aArray;
    CPitchedPtr3D aBuffer;
    float afGot[6] = {};
    EXPECT_TRUE(aBuffer.ToHost(afGot)) << "empty: nothing to do";
    ASSERT_TRUE(aArray.Create(3, 1, 2) && aArray.HostToDevice(vfIn.data()));
    ASSERT_TRUE(aBuffer.Create(3, 1, 2) &&
                GetBackend()->Copy(aBuffer.GetImage(), aArray.GetImage()));
    ASSERT_TRUE(aBuffer.ToHost(afGot));
    EXPECT_EQ(std::vector<float>(afGot, afGot + 6), vfIn);

    CPitchedPtr2D aPitched;
    CDeviceArray2D aTarget;
    ASSERT_TRUE(aPitched.Create(3, 2) && aTarget.Create(3, 2));
    ASSERT_TRUE(aTarget.HostToDevice(vfIn.data()));
    ASSERT_TRUE(GetBackend()->Copy(aPitched.GetImage(), aTarget.GetImage()));
    ASSERT_TRUE(aPitched.Init(7) && aPitched.ToHost(afGot));
    EXPECT_EQ(std::vector<float>(afGot, afGot + 6), std::vector<float>(6, 0));
    for (int i = 0; i < 2; ++i)
    {
        aPitched.Free();
        EXPECT_TRUE(aPitched.IsEmpty());
    }
}

TEST_P(Memory, RefusalsNameTheirNumbers)
{
    CDeviceArray2D aArray;
    CPitchedPtr2D aDoubles;
    aDoubles.SetDouble();
    float afValues[4] = {};
    ASSERT_TRUE(aDoubles.Create(2, 2));
    struct Refusal
    {
        bool bDone;
        std::string strWords;
    };
    const auto Note = [](bool bDone) { return Refusal{bDone, TakeDeviceError()}; };
    for (const auto& [rGot, strExpected] :
         {std::pair{Note(aArray.Create(0, 3)), "0 x 3"},
          {Note(aArray.Create(4, -1)), "4 x -1"},
          {Note(aArray.Create(1 << 30, 1 << 30)), "1073741824 x 1073741824"},
          {Note(aArray.HostToDevice(afValues)), "empty"},
          {Note(aDoubles.ToHost(afValues)), "doubles"},
          {Note(GetBackend()->SelectDevice(5)), "device 5 of 1"}})
    {
        EXPECT_FALSE(rGot.bDone);
        EXPECT_NE(rGot.strWords.find(strExpected), std::string::npos) << rGot.strWords;
    }
    const Image aSmall(2, 2, 1);
    ASSERT_TRUE(aArray.Create(4, 4));
    for (const auto& [x, y, iWidth, iHeight] : {std::array{3, 0, 2, 2},
                                                {0, 3, 2, 2},
                                                {-1, 0, 2, 2},
                                                {0, 0, -2, 2},
                                                {2147483647, 0, 2, 2}})
        EXPECT_FALSE(aArray.HostToDevice(aSmall.Borrow(), x, y, iWidth, iHeight));
    EXPECT_NE(TakeDeviceError(), "");
}
