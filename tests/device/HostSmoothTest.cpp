// What only the host backend does: sharing a volume among cores, and kernels that are products.

#include "gpulib/Device/Host/HostBackend.h"
#include "gpulib/Device/Host/SeparableKernel.h"
#include "tests/device/SmoothRig.h"

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
