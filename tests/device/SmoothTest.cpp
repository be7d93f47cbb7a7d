#include "gpulib/Device/DeviceArray3D.h"
#include "gpulib/Device/Host/SeparableKernel.h"
#include "gpulib/Device/PitchedPtr3D.h"
#include "tests/device/Rig.h"

namespace
{
using Size = std::array<int, 3>;

/// The product of three bells, one value of it changed by a fraction.
Images Bell(const Size& rSize, float fChange = 0)
{
    Images aKernel(rSize[0], rSize[1], rSize[2]);
    const auto Square = [](float f) { return f * f; };
    for (int z = 0; z < rSize[2]; ++z)
        for (int y = 0; y < rSize[1]; ++y)
            for (int x = 0; x < rSize[0]; ++x)
                aKernel.At(x, y, z) = std::exp(-0.5f * (Square(float(x - rSize[0] / 2)) / 1.7f +
                                                        Square(float(y - rSize[1] / 2)) / 2.3f +
                                                        Square(float(z - rSize[2] / 2)) / 1.1f));
    aKernel.vf[aKernel.vf.size() / 2] *= 1 + fChange;
    return aKernel;
}

std::vector<float> Smooth(const Images& rVolume, const Images& rKernel)
{
    EXPECT_TRUE(GetBackend()->SelectDevice(0));
    CDeviceArray3D aVolume, aKernel;
    CPitchedPtr3D aOut;
    std::vector<float> vfOut(rVolume.vf.size());
    EXPECT_TRUE(aVolume.Create(rVolume.iX, rVolume.iY, rVolume.iN) &&
                aVolume.HostToDevice(rVolume.vf.data()) &&
                aKernel.Create(rKernel.iX, rKernel.iY, rKernel.iN) &&
                aKernel.HostToDevice(rKernel.vf.data()) &&
                aOut.Create(rVolume.iX, rVolume.iY, rVolume.iN));
    EXPECT_TRUE(GetBackend()->Smooth({aOut.GetImage(), aVolume.GetImage(), aKernel.GetImage()}) &&
                aOut.ToHost(vfOut.data()));
    return vfOut;
}
}  // namespace

TEST_P(Kernel, SmoothFollowsTheFormula)
{
    for (const Size& rSize :
         {Size{1, 1, 1}, {2, 3, 1}, {63, 1, 4}, {64, 33, 2}, {65, 5, 7}, {517, 35, 2}})
        for (const Size& rK :
             {Size{1, 1, 1}, {3, 3, 3}, {5, 1, 2}, {2, 4, 6}, {1, 7, 1}, {9, 3, 11}, {40, 2, 1}})
            for (const bool bSeparable : {false, true})
            {
                SCOPED_TRACE(testing::Message()
                             << rSize[0] << " x " << rSize[1] << " x " << rSize[2] << ", kernel "
                             << rK[0] << " x " << rK[1] << " x " << rK[2] << " " << bSeparable);
                const Images aVolume = RandomImages(rSize[0], rSize[1], rSize[2], 0.1f, 2, 3);
                const Images aKernel =
                    bSeparable ? Bell(rK) : RandomImages(rK[0], rK[1], rK[2], 0, 1, 4);
                const Values vdExpected = SmoothVolume(aVolume, aKernel);
                const std::vector<float> vfOut = Smooth(aVolume, aKernel);
                // Float sums of up to 297 positive products: their rounding grows as the root.
                for (std::size_t i = 0; i < vfOut.size(); ++i)
                    ASSERT_NEAR(vfOut[i] / vdExpected[i], 1, 2e-6) << i;
            }
}

TEST_P(Kernel, SmoothOfOneKeepsTheBitsAndNanStaysLocal)
{
    Images aVolume = RandomImages(300, 4, 3, -2, 2, 5);
    Images aOne(1, 1, 1, 1);
    EXPECT_TRUE(SameBits(Smooth(aVolume, aOne), aVolume.vf));
    aVolume.At(150, 2, 1) = NAN;
    for (const float fChange : {0.0f, 0.5f})
    {
        const std::vector<float> vfOut = Smooth(aVolume, Bell({5, 1, 3}, fChange));
        for (int i = 0; i < int(vfOut.size()); ++i)
            ASSERT_EQ(std::isnan(vfOut[i]), std::abs(i % 300 - 150) < 3 && i / 300 % 4 == 2) << i;
    }
}

TEST_P(Kernel, SmoothRecognisesProducts)
{
    const auto IsSeparable = [](const Images& rKernel)
    { return !Separate(rKernel.vf.data(), rKernel.iX, rKernel.iY, rKernel.iN).vfX.empty(); };
    EXPECT_TRUE(IsSeparable(Bell({7, 6, 5})));
    EXPECT_FALSE(IsSeparable(Bell({7, 6, 5}, 1e-3f)));
    EXPECT_FALSE(IsSeparable(RandomImages(7, 6, 5, 0, 1)));
    EXPECT_FALSE(IsSeparable(Images(7, 6, 5)));
    EXPECT_FALSE(IsSeparable(Images(7, 6, 5, INFINITY)));
    Images aSigned = Bell({7, 6, 5});  // a difference along X
    for (std::size_t i = 0; i < aSigned.vf.size(); ++i) aSigned.vf[i] *= i % 7 < 3 ? -3.0f : 1.5f;
    EXPECT_TRUE(IsSeparable(aSigned));
}
