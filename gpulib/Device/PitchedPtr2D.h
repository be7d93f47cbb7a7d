#pragma once

#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceMemory.h"

/// A pitched buffer that kernels write: iWidth x iHeight values for a batch of rows.
class CPitchedPtr2D : public CDeviceMemory
{
public:
    CPitchedPtr2D() : CDeviceMemory("buffer") {}

    void SetLanes(int iLanes)
    {
        m_aWanted.iLanes = iLanes;
        m_aWanted.bBatch = true;
    }
    void SetDouble() { m_aWanted.iBytes = 8; }  ///< accumulators
    [[nodiscard]] bool Create(int iWidth, int iHeight) { return mCreate(iWidth, iHeight, 1); }
    /// See CBackend; rArray stays longer than this.
    [[nodiscard]] bool CreateShared(const DeviceImage& rArray) { return mCreateShared(rArray); }
    /// Clears the whole buffer to 0, whatever the argument.
    [[nodiscard]] bool Init(int /*iValue*/) { return IsEmpty() || GetBackend()->Clear(m_aImage); }

    using CDeviceMemory::ToHost;
    /// Copies a one-lane buffer to the host, rows tightly packed; does nothing when empty.
    [[nodiscard]] bool ToHost(float* pfDest) const { return mToHost(pfDest, sizeof *pfDest); }
    [[nodiscard]] bool ToHost(double* pdDest) const { return mToHost(pdDest, sizeof *pdDest); }
    /// Copies all lanes that rRows has, of the first iHeight image rows.
    [[nodiscard]] bool ToHost(const HostRows<float>& rRows, int iHeight) const
    {
        return IsEmpty() || ToHost(rRows, 0, 0, m_aImage.iWidth, iHeight);
    }
    [[nodiscard]] bool ToHost(const HostRows<float>& rRows) const
    {
        return ToHost(rRows, m_aImage.iHeight);
    }
};
