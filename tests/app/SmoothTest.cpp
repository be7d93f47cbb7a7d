// Smoothing: the kernel, and volumes in pieces.

#include <cstring>

#include "gpulib/App/Smooth/TomoSmoothImpl.h"
#include "gpulib/Device/Host/SeparableKernel.h"
#include "tests/device/Rig.h"
#include "tests/job/JobRunner.h"

namespace
{
using Size = std::array<int, 3>;

/// The product of three bells, the middle value changed by a fraction.
Images Bell(const Size& rSize, float fChange = 0)
{
    Images aKernel(rSize[0], rSize[1], rSize[2]);
    for (int i = 0; i < int(aKernel.vf.size()); ++i)
    {
        const float fX = float(i % rSize[0] - rSize[0] / 2);
        const float fY = float(i / rSize[0] % rSize[1] - rSize[1] / 2);
        const float fZ = float(i / rSize[0] / rSize[1] - rSize[2] / 2);
        aKernel.vf[i] = std::exp(-0.3f * fX * fX - 0.2f * fY * fY - 0.4f * fZ * fZ);
    }
    aKernel.vf[aKernel.vf.size() / 2] *= 1 + fChange;
    return aKernel;
}

/// The same bits in any pieces.
std::vector<float> Smooth(const Images& rStart, const Images& rKernel)
{
    Util_Volume aKernel, aVolume;
    Load(aKernel, rKernel.iX, rKernel.iY, rKernel.vf);
    std::vector<float> vfWhole;
    for (const int iPieces : {1, 2, 9})
    {
        Load(aVolume, rStart.iX, rStart.iY, rStart.vf);
        EXPECT_TRUE(CTomoSmoothImpl().DoInPieces(aVolume, aKernel, iPieces));
        if (iPieces == 1) vfWhole = Unload(aVolume);
        EXPECT_EQ(std::memcmp(aVolume.GetData(), vfWhole.data(), 4 * vfWhole.size()), 0);
    }
    return vfWhole;
}
}  // namespace

TEST_P(Kernel, SmoothingFollowsTheFormulaInAnyPieces)
{
    for (const auto& [iX, iY, iZ] :
         {Size{1, 1, 1}, {2, 3, 1}, {63, 1, 4}, {64, 33, 2}, {65, 5, 7}, {517, 35, 2}})
        for (const Size& rK :
             {Size{1, 1, 1}, {3, 3, 3}, {5, 1, 2}, {2, 4, 6}, {1, 7, 1}, {9, 3, 11}, {50, 2, 1}})
            for (const Images& rKernel : {Bell(rK), RandomImages(rK[0], rK[1], rK[2], 0, 1, 4)})
            {
                const Images aVolume = RandomImages(iX, iY, iZ, 0.1f, 2, 3);
                const Values vdExpected = SmoothVolume(aVolume, rKernel);
                const std::vector<float> vfOut = Smooth(aVolume, rKernel);
                // Float sums of up to 297 positive products: their rounding grows as the root.
                for (std::size_t i = 0; i < vfOut.size(); ++i)
                    ASSERT_NEAR(vfOut[i] / vdExpected[i], 1, 2e-6)
                        << iX << " x " << iY << " x " << iZ << ", voxel " << i << ", kernel "
                        << testing::PrintToString(rK) << rKernel.vf[0];
            }
}

TEST_P(Kernel, SmoothingByOneKeepsTheBitsAndNanStaysLocal)
{
    Images aVolume = RandomImages(300, 4, 3, -2, 2, 5);
    EXPECT_EQ(Smooth(aVolume, Images(1, 1, 1, 1)), aVolume.vf);
    aVolume.At(150, 2, 1) = NAN;
    for (const float fChange : {0.0f, 0.5f})
    {
        const std::vector<float> vfOut = Smooth(aVolume, Bell({5, 1, 3}, fChange));
        for (int i = 0; i < int(vfOut.size()); ++i)
            ASSERT_EQ(std::isnan(vfOut[i]), std::abs(i % 300 - 150) < 3 && i / 300 % 4 == 2) << i;
    }
}

TEST(SmoothPieces, FollowTheMemory)
{
    SetBackend(MakeHostBackend("", 1));
    const std::size_t tMiB = GetBackend()->GetDeviceMemory(0) >> 20;
    const std::size_t tQuarter = (tMiB >> 2) * (std::size_t(1) << 18);  // voxels
    EXPECT_EQ(CTomoSmoothImpl::CalcNumSplits(2 * tQuarter - 1, 0), 1);
    EXPECT_EQ(CTomoSmoothImpl::CalcNumSplits(2 * tQuarter, 0), 2);
    EXPECT_EQ(CTomoSmoothImpl::CalcNumSplits(1, 1), 0);
    SetBackend(nullptr);
}

TEST(SeparableKernel, RecognisesProducts)
{
    Images aSigned = Bell({7, 6, 5});  // a difference along X
    for (std::size_t i = 0; i < aSigned.vf.size(); ++i) aSigned.vf[i] *= i % 7 < 3 ? -3.0f : 1.5f;
    for (const auto& [aKernel, bExpected] : {std::pair{Bell({7, 6, 5}), true},
                                             {aSigned, true},
                                             {Bell({7, 6, 5}, 1e-3f), false},
                                             {Images(7, 6, 5), false},
                                             {Images(7, 6, 5, INFINITY), false}})
        EXPECT_EQ(Separate(aKernel.vf.data(), 7, 6, 5).vfX.empty(), !bExpected) << aKernel.vf[0];
}

// For the Kernel tests of this program.
INSTANTIATE_TEST_SUITE_P(Backends, Kernel, testing::ValuesIn(GetTestBackends()),
                         [](const auto& rInfo) { return rInfo.param; });
