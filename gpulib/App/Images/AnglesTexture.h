#pragma once

#include <span>

#include "gpulib/Device/DeviceArray2D.h"

/// Table of (cos, sin) of the tilt angles on the device; element i belongs to projection i.
class CAnglesTexture
{
public:
    [[nodiscard]] bool Create(int iProjs);
    /// \param fAngles  degrees, one per projection
    [[nodiscard]] bool SetData(std::span<const float> fAngles);
    void ClearDevice() { m_aCosSin.Free(); }
    const DeviceImage& GetImage() const { return m_aCosSin.GetImage(); }

private:
    CDeviceArray2D m_aCosSin;
    int m_iSize = 0;
};
