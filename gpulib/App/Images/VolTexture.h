#pragma once

#include "gpulib/Device/DeviceArray2D.h"

/// X-Z slices of the volume for a batch of rows, each inside a frame of one zero texel.
///
/// Voxel (x, z) stands at texel (x + 1, z + 1). The frame is never written, so a bilinear sample
/// near the edge blends with zeros. The back projection updates the slices in place.
class CVolTexture
{
public:
    [[nodiscard]] bool Create(int iSizeX, int iSizeZ, int iLanes);
    /// Loads the slices: image row z from slice z of the volume, lanes from its Y rows.
    [[nodiscard]] bool SetData(const HostRows<const float>& rRows);
    /// The reverse; only the rows that rRows has are written, by CBackend::FinishDownload() at the
    /// latest.
    [[nodiscard]] bool StartToHost(const HostRows<float>& rRows) const;
    void ClearDevice() { m_aVolume.Free(); }
    const DeviceImage& GetImage() const { return m_aVolume.GetImage(); }

private:
    CDeviceArray2D m_aVolume;
    int m_iSizeX = 0;
    int m_iSizeZ = 0;
};
