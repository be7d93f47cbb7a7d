#pragma once

#include "gpulib/Device/DeviceImage.h"

/// Owner of one 3-D array of floats that kernels sample; one lane. Shape [z][y][x].
class CDeviceArray3D
{
public:
    CDeviceArray3D() = default;
    ~CDeviceArray3D() { Free(); }
    CDeviceArray3D(const CDeviceArray3D&) = delete;
    CDeviceArray3D& operator=(const CDeviceArray3D&) = delete;

    /// Frees what is held and allocates anew, zero-filled. \return false with the reason noted
    [[nodiscard]] bool Create(int iX, int iY, int iZ);
    /// Fills the array from tightly packed host values.
    [[nodiscard]] bool HostToDevice(const float* pfData);
    /// Copies an image of the same sizes.
    [[nodiscard]] bool DeviceToDevice(const DeviceImage& rSource);
    void Free();

    const DeviceImage& GetImage() const { return m_aImage; }
    bool IsEmpty() const { return m_aImage.iWidth == 0; }

private:
    DeviceImage m_aImage;
};
