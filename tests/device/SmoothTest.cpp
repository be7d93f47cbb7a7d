#include <array>

#include "gpulib/Device/DeviceArray3D.h"
#include "gpulib/Device/GSmooth.h"
#include "gpulib/Device/Host/HostBackend.h"
#include "gpulib/Device/Host/SeparableKernel.h"
#include "gpulib/Device/PitchedPtr3D.h"
#include "tests/device/Rig.h"
#include "tests/oracle/Oracle.h"

namespace
{
using Size = std::array<int, 3>;

std::size_t CountOf(const Size& rSize)
{
    return std::size_t(rSize[0]) * rSize[1] * rSize[2];
}

std::vector<float> RandomValues(const Size& rSize, float fLow, float fHigh, int iSeed)
{
    return RandomImage(rSize[0], rSize[1], rSize[2], fLow, fHigh, iSeed).vf;
}

/// The product of three bells, one value of it changed by a fraction.
std::vector<float> Bell(const Size& rSize, double dChange = 0)
{
    std::vector<float> vfKernel;
    const auto Square = [](double d) { return d * d; };
    for (int z = 0; z < rSize[2]; ++z)
        for (int y = 0; y < rSize[1]; ++y)
            for (int x = 0; x < rSize[0]; ++x)
                vfKernel.push_back(float(std::exp(-0.5 * (Square(x - rSize[0] / 2) / 1.7 +
                                                          Square(y - rSize[1] / 2) / 2.3 +
                                                          Square(z - rSize[2] / 2) / 1.1))));
    vfKernel[vfKernel.size() / 2] *= float(1 + dChange);
    return vfKernel;
}

/// Runs the kernel on device 0; empty when it fails.
std::vector<float> RunSmooth(const Size& rSize, const std::vector<float>& rVolume,
                             const Size& rKernelSize, const std::vector<float>& rKernel)
{
    EXPECT_TRUE(GetBackend()->SelectDevice(0));
    CDeviceArray3D aVolume, aKernel;
    CPitchedPtr3D aOut;
    EXPECT_TRUE(aVolume.Create(rSize[0], rSize[1], rSize[2]));
    EXPECT_TRUE(aVolume.HostToDevice(rVolume.data()));
    EXPECT_TRUE(aKernel.Create(rKernelSize[0], rKernelSize[1], rKernelSize[2]));
    EXPECT_TRUE(aKernel.HostToDevice(rKernel.data()));
    EXPECT_TRUE(aOut.Create(rSize[0], rSize[1], rSize[2]));
    GSmooth aSmooth;
    aSmooth.SetVolSize(rSize.data());
    aSmooth.SetGauSize(rKernelSize.data());
    aSmooth.SetVolumeArray(aVolume.GetImage());
    aSmooth.SetGaussianArray(aKernel.GetImage());
    std::vector<float> vfOut(CountOf(rSize));
    if (!aSmooth.DoIt(aOut.GetImage()) || !aOut.ToHost(vfOut.data())) vfOut.clear();
    return vfOut;
}

using Smooth = Kernel;
INSTANTIATE_TEST_SUITE_P(Sets, Smooth, testing::ValuesIn(GetHostInstructionSets()),
                         [](const auto& rInfo) { return rInfo.param; });
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
                const OracleVolume aExpected =
                    SmoothVolume({rSize[0], rSize[1], rSize[2], vfVolume},
                                 {rKernelSize[0], rKernelSize[1], rKernelSize[2], vfKernel});
                const std::vector<float> vfOut = RunSmooth(rSize, vfVolume, rKernelSize, vfKernel);
                ASSERT_EQ(vfOut.size(), aExpected.vd.size());
                // Float sums of up to 297 positive products: their rounding grows as the root.
                for (std::size_t i = 0; i < vfOut.size(); ++i)
                    ASSERT_NEAR(vfOut[i] / aExpected.vd[i], 1, bSeparable ? 1e-6 : 2e-6) << i;
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

TEST(SmoothTeam, CoresShareTheWork)
{
    const Size aSize = {90, 70, 5};
    const std::vector<float> vfVolume = RandomValues(aSize, 0, 2, 8);
    std::vector<std::vector<float>> vvfOut;
    for (const int iCores : {1, 3})
    {
        SetBackend(std::make_unique<CHostBackend>(Baseline::g_aKernels, 1, iCores, 0));
        vvfOut.push_back(RunSmooth(aSize, vfVolume, {3, 3, 3}, Bell({3, 3, 3})));
        SetBackend(nullptr);
    }
    EXPECT_TRUE(SameBits(vvfOut[0], vvfOut[1]));
}

TEST(SeparableKernel, IsRecognised)
{
    const Size aSize = {7, 6, 5};
    const auto IsSeparable = [&](const std::vector<float>& rKernel)
    { return !Separate(rKernel.data(), aSize[0], aSize[1], aSize[2]).vfX.empty(); };
    EXPECT_TRUE(IsSeparable(Bell(aSize)));
    EXPECT_FALSE(IsSeparable(Bell(aSize, 1e-3)));
    EXPECT_FALSE(IsSeparable(RandomValues(aSize, 0, 1, 9)));
    EXPECT_FALSE(IsSeparable(std::vector<float>(CountOf(aSize))));
    EXPECT_FALSE(IsSeparable(std::vector<float>(CountOf(aSize), INFINITY)));
    std::vector<float> vfSigned = Bell(aSize);  // a difference along X
    for (std::size_t i = 0; i < vfSigned.size(); ++i) vfSigned[i] *= i % 7 < 3 ? -3.0f : 1.5f;
    EXPECT_TRUE(IsSeparable(vfSigned));
}
