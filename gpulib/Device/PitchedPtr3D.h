#pragma once

#include "gpulib/Device/DeviceImage.h"

/// Owner of one pitched buffer of floats that kernels write, a stack of slices; one lane. Slice k
/// begins at image row k * iY. Shape [z][y][x].
class CPitchedPtr3D
{
public:
    CPitchedPtr3D() = default;
    ~CPitchedPtr3D() { Free(); }
    CPitchedPtr3D(const CPitchedPtr3D&) = delete;
    CPitchedPtr3D& operator=(const CPitchedPtr3D&) = delete;

    /// Frees what is held and allocates anew. \return false with the reason noted
    [[nodiscard]] bool Create(int iX, int iY, int iZ);
    /// Copies the buffer to the host, tightly packed; does nothing when empty.
    [[nodiscard]] bool ToHost(float* pfDest) const;
    void Free();

    const DeviceImage& GetImage() const { return m_aImage; }
    bool IsEmpty() const { return m_aImage.iWidth == 0; }

private:
    DeviceImage m_aImage;
};
