#pragma once

#include "gpulib/Device/KernelParams.h"

/// Driver of the smoothing kernel. Holds images by value, owns none.
class GSmooth
{
public:
    void SetVolSize(int iX, int iY, int iZ);
    void SetVolSize(const int* piSize) { SetVolSize(piSize[0], piSize[1], piSize[2]); }
    void SetGauSize(int iX, int iY, int iZ);  ///< of the kernel
    void SetGauSize(const int* piSize) { SetGauSize(piSize[0], piSize[1], piSize[2]); }
    void SetVolumeArray(const DeviceImage& rImage) { m_aParams.aVol = rImage; }
    void SetGaussianArray(const DeviceImage& rImage) { m_aParams.aKernel = rImage; }

    /// Smooths the volume into rOut, a buffer of the same sizes.
    [[nodiscard]] bool DoIt(const DeviceImage& rOut);

private:
    int m_aiVolSize[3] = {0, 0, 0};
    int m_aiGauSize[3] = {0, 0, 0};
    SmoothParams m_aParams;
};
