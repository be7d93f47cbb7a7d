#pragma once

#include "gpulib/Device/DeviceArray2D.h"

/// A measured projection as an image that kernels sample, shape [y][x].
class CMProjTex
{
public:
    /// The pixels are borrowed until ClearDevice().
    [[nodiscard]] bool Create(const float* pfMProj, int iSizeX, int iSizeY)
    {
        return m_aMProj.CreateLent(pfMProj, iSizeX, iSizeY);
    }
    void ClearDevice() { m_aMProj.Free(); }
    const DeviceImage& GetImage() const { return m_aMProj.GetImage(); }

private:
    CDeviceArray2D m_aMProj;
};
