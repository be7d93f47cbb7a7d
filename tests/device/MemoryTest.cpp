// Owners of device memory, and copies between host rows and batches.

#include <numeric>

#include "gpulib/Device/DeviceArray3D.h"
#include "gpulib/Device/PitchedPtr3D.h"
#include "tests/device/Rig.h"

TEST_P(Kernel, RectanglesComeBackAndTheRestIsZero)
{
    const auto Sum = [](const Images& rImages)
    { return std::accumulate(rImages.vf.begin(), rImages.vf.end(), 0.0); };
    for (const int iRows : {1, 2, 4, 5, 8, 9, 15, 16, 17, 32})
        for (const auto& [iX, iY] : {std::pair{1, 1}, {3, 2}, {16, 5}, {67, 3}, {130, 2}})
        {
            SCOPED_TRACE(testing::Message() << iRows << " rows of " << iX << " x " << iY);
            const Images aIn = RandomImages(iX, iY, iRows, 1, 2);
            CDeviceArray2D aArray;
            aArray.SetLanes(iRows);
            ASSERT_TRUE(aArray.Create(iX + 5, iY + 3) &&
                        aArray.HostToDevice(Borrow(aIn), 3, 2, iX, iY));
            Images aOut(iX, iY, iRows), aAll(iX + 5, iY + 3, iRows);
            ASSERT_TRUE(aArray.ToHost(Borrow(aOut), 3, 2, iX, iY) &&
                        aArray.ToHost(Borrow(aAll), 0, 0, iX + 5, iY + 3));
            EXPECT_TRUE(SameBits(aIn.vf, aOut.vf));
            EXPECT_NEAR(Sum(aAll), Sum(aIn), 1e-9);  // values are at least 1: nothing else is set

            // Fewer rows than lanes: the lanes without a row become 0.
            const Images aOne = Part(aIn, 0, 1);
            ASSERT_TRUE(aArray.HostToDevice(Borrow(aOne), 3, 2, iX, iY) &&
                        aArray.ToHost(Borrow(aOut), 3, 2, iX, iY));
            EXPECT_NEAR(Sum(aOut), Sum(aOne), 1e-9);
        }
}

TEST_P(Kernel, TablesInterleavePairs)
{
    CRig aRig;
    std::vector<float> vfGot(12);
    ASSERT_TRUE(GetBackend()->DownloadTable(
        aRig.Pairs(3, {0, 1, 2, 3, 4, 5}, {10, 11, 12, 13, 14, 15}), vfGot.data()));
    EXPECT_EQ(vfGot, (std::vector<float>{0, 10, 1, 11, 2, 12, 3, 13, 4, 14, 5, 15}));
}

TEST_P(Kernel, BuffersClearCopyAndFree)
{
    const std::vector<float> vfIn = {1, 2, 3, 4, 5, 6};
    ASSERT_TRUE(GetBackend()->SelectDevice(0));
    CDeviceArray3D aArray;
    CPitchedPtr3D aBuffer;
    std::vector<float> vfGot(6);
    EXPECT_TRUE(aBuffer.ToHost(vfGot.data())) << "empty: nothing to do";
    ASSERT_TRUE(
        aArray.Create(3, 1, 2) && aArray.HostToDevice(vfIn.data()) && aBuffer.Create(3, 1, 2) &&
        GetBackend()->Copy(aBuffer.GetImage(), aArray.GetImage()) && aBuffer.ToHost(vfGot.data()));
    EXPECT_EQ(vfGot, vfIn);

    CPitchedPtr2D aPitched;
    CDeviceArray2D aTarget;
    ASSERT_TRUE(aPitched.Create(3, 2) && aTarget.Create(3, 2) &&
                aTarget.HostToDevice(vfIn.data()) &&
                GetBackend()->Copy(aPitched.GetImage(), aTarget.GetImage()) && aPitched.Init(7) &&
                aPitched.ToHost(vfGot.data()));
    EXPECT_EQ(vfGot, std::vector<float>(6, 0));
    for (int i = 0; i < 2; ++i)
    {
        aPitched.Free();
        EXPECT_TRUE(aPitched.IsEmpty());
    }
}

TEST_P(Kernel, MemoryIsRefusedWithItsNumbers)
{
    CRig aRig;
    CDeviceArray2D aArray;
    CPitchedPtr2D aDoubles;
    aDoubles.SetDouble();
    float afValues[4] = {};
    ASSERT_TRUE(aDoubles.Create(2, 2));
    const Images aSmall(2, 2, 1);
    CDeviceArray2D aImage;
    aImage.SetLanes(1);
    ASSERT_TRUE(aImage.Create(4, 4));
    const auto Fill = [&](int iX, int iY, int iWidth, int iHeight)
    { return aImage.HostToDevice(Borrow(aSmall), iX, iY, iWidth, iHeight); };
    const auto Note = [](bool bDone) { return std::pair{bDone, TakeDeviceError()}; };
    for (const auto& [aGot, pcExpected] :
         {std::pair{Note(aArray.Create(0, 3)), "0 x 3"},
          {Note(aArray.Create(4, -1)), "4 x -1"},
          {Note(aArray.Create(1 << 30, 1 << 30)), "1073741824 x 1073741824"},
          {Note(aArray.HostToDevice(afValues)), "empty"},
          {Note(aArray.CreateLent(nullptr, 2, 2)), "lend array"},
          {Note(aDoubles.ToHost(afValues)), "doubles"},
          {Note(GetBackend()->SelectDevice(99)), "device 99 of "},
          {Note(GetBackend()->SelectDevice(-1)), "device -1 of "},
          {Note(GetBackend()->Copy(aImage.GetImage(), aDoubles.GetImage())), "2 x 2 x 1 to 4 x 4"},
          {Note(GetBackend()->Clear(DeviceImage())), "clear: "},
          {Note(Fill(3, 0, 2, 2)), "2 x 2 at (3, 0)"},
          {Note(Fill(0, 3, 2, 2)), "2 x 2 at (0, 3)"},
          {Note(Fill(-1, 0, 2, 2)), "2 x 2 at (-1, 0)"},
          {Note(Fill(0, 0, -2, 2)), "-2 x 2 at"},
          {Note(Fill(2147483647, 0, 2, 2)), "at (2147483647, 0)"}})
    {
        EXPECT_FALSE(aGot.first) << pcExpected;
        EXPECT_NE(aGot.second.find(pcExpected), std::string::npos) << aGot.second;
    }
}
