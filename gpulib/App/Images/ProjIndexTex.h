#pragma once

#include <span>

#include "gpulib/Device/DeviceArray2D.h"

/// The projections that take part in a job: element p is the raw number at list position p.
class CProjIndexTex
{
public:
    [[nodiscard]] bool Create(std::span<const unsigned int> uiIndices);
    void ClearDevice() { m_aArray2D.Free(); }
    const DeviceImage& GetImage() const { return m_aArray2D.GetImage(); }

private:
    CDeviceArray2D m_aArray2D;
};
