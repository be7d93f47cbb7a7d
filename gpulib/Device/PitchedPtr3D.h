#pragma once

#include "gpulib/Device/DeviceMemory.h"

/// A pitched buffer of floats that kernels write, a stack of slices; one lane. Slice k begins at
/// image row k * iY. Shape [z][y][x].
class CPitchedPtr3D : public CDeviceMemory
{
public:
    CPitchedPtr3D() : CDeviceMemory("buffer") {}
    [[nodiscard]] bool Create(int iX, int iY, int iZ) { return mCreate(iX, iY, iZ); }
    /// Copies the buffer to the host, tightly packed; does nothing when empty.
    [[nodiscard]] bool ToHost(float* pfDest) const { return mToHost(pfDest, sizeof *pfDest); }
};
