#pragma once

#include <span>

#include "gpulib/Device/DeviceArray2D.h"

/// Inverse path length through the whole cross-section, one value per detector
/// column and projection, shape [proj][x]; the same for all rows.
class CProjweightTex
{
public:
    [[nodiscard]] bool Create(int iSizeX, int iProjs);
    [[nodiscard]] bool SetData(std::span<const float> fWeights);
    void ClearDevice() { m_aArray2D.Free(); }
    const DeviceImage& GetImage() const { return m_aArray2D.GetImage(); }

private:
    CDeviceArray2D m_aArray2D;
};
