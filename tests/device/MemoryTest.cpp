// Owners of device memory, and copies between host rows and batches.

#include <numeric>

#include "tests/device/Rig.h"

TEST_P(Kernel, RectanglesComeBackAndTheRestIsZero)
{
    const auto Sum = [](const Images& rImages)
    { return std::accumulate(rImages.vf.begin(), rImages.vf.end(), 0.0); };
    for (const int iRows : {1, 2, 4, 5, 8, 9, 15, 16, 17, 32})
        for (const auto& [iX, iY] : {std::pair{1, 1}, {3, 2}, {16, 5}, {67, 3}, {130, 2}, {185, 2}})
        {
            SCOPED_TRACE(testing::Message() << iRows << " rows of " << iX << " x " << iY);
            const Images aIn = RandomImages(iX, iY, iRows, 1, 2), aOne = Part(aIn, 0);
            Images aOut(iX, iY, iRows);
            CRig aRig;
            const DeviceImage aImage = aRig.Array(Images(iX + 5, iY + 3, iRows));
            ASSERT_TRUE(GetBackend()->Upload(aImage, Borrow(aIn), 3, 2, iX, iY) &&
                        GetBackend()->Download(aImage, Borrow(aOut), 3, 2, iX, iY));
            EXPECT_EQ(aIn.vf, aOut.vf);
            // Values are at least 1: nothing else is set.
            EXPECT_NEAR(Sum(CRig::Read(aImage, iRows)), Sum(aIn), 1e-9);
            // Fewer rows than lanes: the lanes without a row become 0.
            ASSERT_TRUE(GetBackend()->Upload(aImage, Borrow(aOne), 3, 2, iX, iY));
            EXPECT_NEAR(Sum(CRig::Read(aImage, iRows)), Sum(aOne), 1e-9);
        }
}

/// Slices large enough that memory is given back and that they travel in several chunks, beside
/// rows that have to stay.
TEST_P(Kernel, SlicesMoveBetweenVolumeAndBatch)
{
    constexpr int iX = 1030, iZ = 70, iY = 40, iFirst = 3;
    for (const int iRows : {5, 32})
    {
        Images aVolume = RandomImages(iX, iY, iZ, 1, 2);
        const Images aBefore = aVolume;
        CRig aRig;
        const DeviceImage aImage = aRig.Array(Images(iX + 2, iZ + 2, iRows));
        const HostRows<float> aRows = {&aVolume.vf[iX * iFirst], iX * iY, iX, iRows};
        for (int iTimes = 0; iTimes < 2; ++iTimes)
        {
            ASSERT_TRUE(GetBackend()->MoveIn(aImage, aRows, 1, 1, iX, iZ));
            // What is moved out is what the image holds, whatever became of the slices meanwhile.
            ASSERT_TRUE(GetBackend()->StartMoveOut(aImage, aRows, 1, 1, iX, iZ) &&
                        GetBackend()->FinishDownload());
            EXPECT_EQ(aVolume.vf, aBefore.vf) << iRows << " rows";
        }
    }
}

/// In the midst of others, which have to stay.
TEST_P(Kernel, LentRowsAreReadAndComeBack)
{
    constexpr int iN = 3, iY = 40, iFirst = 5;
    for (const int iX : {1, 67, 130})
        for (const auto& [iRows, iMore] :
             {std::pair{1, 0}, {3, 0}, {4, 0}, {4, 1}, {8, 0}, {16, 16}, {31, 0}, {32, 0}})
        {
            SCOPED_TRACE(testing::Message() << iRows << " rows of " << iX);
            Images aStack = RandomImages(iX, iY, iN, 1, 2);
            const Images aBefore = aStack;
            CDeviceArray2D aArray;
            aArray.SetLanes(iRows + iMore);
            ASSERT_TRUE(aArray.CreateLentRows(
                {&aStack.vf[iX * iFirst], std::size_t(iX) * iY, std::size_t(iX), iRows}, iX, iN));
            const Images aGot = CRig::Read(aArray.GetImage(), iRows);
            for (int i = 0; i < int(aGot.vf.size()); ++i)
                ASSERT_EQ(aGot.vf[i],
                          aBefore.Nth(i / iX % iN)[(iFirst + i / (iX * iN)) * iX + i % iX]);
            aArray.Free();
            EXPECT_EQ(aStack.vf, aBefore.vf);
        }
}

TEST_P(Kernel, BuffersInterleaveCopyAndClear)
{
    CRig aRig;
    std::vector<float> vfGot(12);
    ASSERT_TRUE(GetBackend()->DownloadTable(
        aRig.Pairs(3, {0, 1, 2, 3, 4, 5}, {10, 11, 12, 13, 14, 15}), vfGot.data()));
    EXPECT_EQ(vfGot, (std::vector<float>{0, 10, 1, 11, 2, 12, 3, 13, 4, 14, 5, 15}));

    const Images aIn = RandomImages(3, 2, 1, 1, 2);
    const DeviceImage aArray = aRig.Array(Images(3, 2, 1)), aBuffer = aRig.Buffer(aIn);
    ASSERT_TRUE(GetBackend()->Copy(aArray, aBuffer) && GetBackend()->Clear(aBuffer));
    EXPECT_EQ(CRig::Read(aArray, 1).vf, aIn.vf);
    EXPECT_EQ(CRig::Read(aBuffer, 1).vf, Images(3, 2, 1).vf);
    CPitchedPtr2D aEmpty;
    aEmpty.Free();
    EXPECT_TRUE(aEmpty.IsEmpty() && aEmpty.ToHost(vfGot.data())) << "nothing to do";
}
