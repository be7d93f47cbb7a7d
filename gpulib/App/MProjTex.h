#pragma once

#include "gpulib/Device/DeviceArray2D.h"

/// A measured projection as an image that kernels sample, shape [y][x].
class CMProjTex
{
public:
    /// Keeps an array of the same size.
    [[nodiscard]] bool Create(int iSizeX, int iSizeY);
    [[nodiscard]] bool SetData(const float* pfMProj) { return m_aMProj.HostToDevice(pfMProj); }
    void ClearDevice() { m_aMProj.Free(); }
    const DeviceImage& GetImage() const { return m_aMProj.GetImage(); }

private:
    CDeviceArray2D m_aMProj;
};
