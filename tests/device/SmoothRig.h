#pragma once

#include <array>

#include "gpulib/Device/DeviceArray3D.h"
#include "gpulib/Device/GSmooth.h"
#include "gpulib/Device/PitchedPtr3D.h"
#include "tests/device/Rig.h"

using Size = std::array<int, 3>;

inline std::size_t CountOf(const Size& rSize)
{
    return std::size_t(rSize[0]) * rSize[1] * rSize[2];
}

inline std::vector<float> RandomValues(const Size& rSize, float fLow, float fHigh, int iSeed)
{
    return RandomImage(rSize[0], rSize[1], rSize[2], fLow, fHigh, iSeed).vf;
}

/// The product of three bells, one value of it changed by a fraction.
inline std::vector<float> Bell(const Size& rSize, double dChange = 0)
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
inline std::vector<float> RunSmooth(const Size& rSize, const std::vector<float>& rVolume,
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
    aSmooth.SetVolumeArray(aVolume.GetImage());
    aSmooth.SetGaussianArray(aKernel.GetImage());
    std::vector<float> vfOut(CountOf(rSize));
    if (!aSmooth.DoIt(aOut.GetImage()) || !aOut.ToHost(vfOut.data())) vfOut.clear();
    return vfOut;
}
