#pragma once

#include "gpulib/Device/KernelParams.h"

/// Driver of the smoothing kernel. Holds images by value, owns none; their sizes are those of the
/// volume and of the kernel.
class GSmooth
{
public:
    void SetVolumeArray(const DeviceImage& rImage) { m_aParams.aVol = rImage; }
    void SetGaussianArray(const DeviceImage& rImage) { m_aParams.aKernel = rImage; }

    /// Smooths the volume into rOut, a buffer of the same sizes.
    [[nodiscard]] bool DoIt(const DeviceImage& rOut);

private:
    SmoothParams m_aParams;
};
