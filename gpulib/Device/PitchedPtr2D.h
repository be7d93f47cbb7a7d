#pragma once

#include "gpulib/Device/DeviceImage.h"

/// Owner of one pitched buffer that kernels write: iWidth x iHeight values for a batch of rows.
class CPitchedPtr2D
{
public:
    CPitchedPtr2D() = default;
    ~CPitchedPtr2D() { Free(); }
    CPitchedPtr2D(const CPitchedPtr2D&) = delete;
    CPitchedPtr2D& operator=(const CPitchedPtr2D&) = delete;

    void SetLanes(int iLanes) { m_iLanes = iLanes; }  ///< at the next Create()
    void SetDouble() { m_iBytes = 8; }                ///< accumulators; at the next Create()
    /// Frees what is held and allocates anew, zero-filled. \return false with the reason noted
    [[nodiscard]] bool Create(int iWidth, int iHeight);
    /// Clears the whole buffer to 0, whatever the argument.
    [[nodiscard]] bool Init(int iValue);
    /// Copies a one-lane buffer to the host, rows tightly packed; does nothing when empty.
    [[nodiscard]] bool ToHost(float* pfDest) const;
    [[nodiscard]] bool ToHost(double* pdDest) const;
    /// Copies all lanes that rRows has.
    [[nodiscard]] bool ToHost(const HostRows<float>& rRows) const;
    /// The first iHeight image rows only.
    [[nodiscard]] bool ToHost(const HostRows<float>& rRows, int iHeight) const;
    void Free();

    const DeviceImage& GetImage() const { return m_aImage; }
    bool IsEmpty() const { return m_aImage.iWidth == 0; }

private:
    DeviceImage m_aImage;
    int m_iLanes = 1;
    int m_iBytes = 4;
};
