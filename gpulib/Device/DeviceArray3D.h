#pragma once

#include "gpulib/Device/DeviceMemory.h"

/// A 3-D array of floats that kernels sample; one lane. Shape [z][y][x].
class CDeviceArray3D : public CDeviceMemory
{
public:
    CDeviceArray3D() : CDeviceMemory("array") {}
    [[nodiscard]] bool Create(int iX, int iY, int iZ) { return mCreate(iX, iY, iZ); }
};
