#include "tests/device/SmoothRig.h"
#include "tests/oracle/Oracle.h"

namespace
{
using Smooth = Kernel;
INSTANTIATE_TEST_SUITE_P(Sets, Smooth, testing::ValuesIn(GetTestBackends()),
                         [](const auto& rInfo) { return NameOf(rInfo.param); });
}  // namespace

TEST_P(Smooth, FollowsTheFormula)
{
    const Size aVolumes[] = {{1, 1, 1},   {2, 3, 1},  {63, 1, 4},
                             {64, 33, 2}, {65, 5, 7}, {517, 35, 2}};
    const Size aKernels[] = {{1, 1, 1}, {3, 3, 3},  {5, 1, 2}, {2, 4, 6},
                             {1, 7, 1}, {9, 3, 11}, {40, 2, 1}};
    for (const Size& rSize : aVolumes)
        for (const Size& rKernelSize : aKernels)
            for (const bool bSeparable : {false, true})
            {
                SCOPED_TRACE(testing::Message()
                             << rSize[0] << " x " << rSize[1] << " x " << rSize[2] << ", kernel "
                             << rKernelSize[0] << " x " << rKernelSize[1] << " x " << rKernelSize[2]
                             << (bSeparable ? " separable" : ""));
                const std::vector<float> vfVolume = RandomValues(rSize, 0.1f, 2, 3);
                const std::vector<float> vfKernel =
                    bSeparable ? Bell(rKernelSize) : RandomValues(rKernelSize, 0, 1, 4);
                Images aVolume(rSize[0], rSize[1], rSize[2]);
                Images aKernel(rKernelSize[0], rKernelSize[1], rKernelSize[2]);
                aVolume.vf = vfVolume;
                aKernel.vf = vfKernel;
                const Values vdExpected = SmoothVolume(aVolume, aKernel);
                const std::vector<float> vfOut = RunSmooth(rSize, vfVolume, rKernelSize, vfKernel);
                ASSERT_EQ(vfOut.size(), vdExpected.size());
                // Float sums of up to 297 positive products: their rounding grows as the root. The
                // host adds products of three factors dimension by dimension.
                const bool bByDimension = bSeparable && GetBackend()->UsesHostMemory();
                const double dTolerance = bByDimension ? 1e-6 : 2e-6;
                for (std::size_t i = 0; i < vfOut.size(); ++i)
                    ASSERT_NEAR(vfOut[i] / vdExpected[i], 1, dTolerance) << i;
            }
}

TEST_P(Smooth, KernelOfOneKeepsTheBits)
{
    const Size aSize = {77, 3, 5};
    const std::vector<float> vfVolume = RandomValues(aSize, -2, 2, 5);
    EXPECT_TRUE(SameBits(RunSmooth(aSize, vfVolume, {1, 1, 1}, {1.0f}), vfVolume));
}

// Correlation order: the first value of the kernel weighs the neighbour before.
TEST_P(Smooth, ShiftsTowardsTheEnd)
{
    const Size aSize = {70, 2, 2};
    const std::vector<float> vfVolume = RandomValues(aSize, -2, 2, 6);
    const std::vector<float> vfOut = RunSmooth(aSize, vfVolume, {2, 1, 1}, {1, 0});
    for (int i = 0; i < int(vfVolume.size()); ++i)
        EXPECT_EQ(vfOut[i], vfVolume[i % 70 == 0 ? i : i - 1]) << i;
}

// A voxel that is no number spoils what the kernel reaches, and nothing else.
TEST_P(Smooth, NanStaysLocal)
{
    const Size aSize = {300, 4, 3};
    std::vector<float> vfVolume = RandomValues(aSize, 0, 2, 7);
    vfVolume[(1 * 4 + 2) * 300 + 150] = NAN;
    for (const double dChange : {0.0, 0.5})
    {
        const std::vector<float> vfOut =
            RunSmooth(aSize, vfVolume, {5, 1, 3}, Bell({5, 1, 3}, dChange));
        for (int i = 0; i < int(vfOut.size()); ++i)
            ASSERT_EQ(std::isnan(vfOut[i]), std::abs(i % 300 - 150) < 3 && i / 300 % 4 == 2) << i;
    }
}

TEST_P(Smooth, SizesThatDoNotMatchFail)
{
    EXPECT_TRUE(
        RunSmooth({8, 8, 8}, std::vector<float>(512), {1, 1025, 1}, std::vector<float>(1025))
            .empty());
    EXPECT_EQ(TakeDeviceError(), "Smooth: kernel of 1 x 1025 x 1, at most 1024 each");
    GSmooth aSmooth;
    aSmooth.SetVolSize(4, 4, 4);
    aSmooth.SetGauSize(1, 1, 1);
    EXPECT_FALSE(aSmooth.DoIt(DeviceImage()));
    EXPECT_NE(TakeDeviceError(), "");
}
