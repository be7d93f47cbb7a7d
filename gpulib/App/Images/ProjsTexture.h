#pragma once

#include "gpulib/Device/DeviceArray2D.h"

/// Measured and working projections of a batch of detector rows, each of shape [proj][x].
///
/// The measured rows come from the stack; the working rows are what the back projection reads.
/// A job that never needs both at once keeps them in one image: loading the measured rows then
/// fills the working rows too.
class CProjsTexture
{
public:
    /// \param iLanes     rows of a batch
    /// \param bOneImage  measured and working rows share one image
    [[nodiscard]] bool Create(int iSizeX, int iProjs, int iLanes, bool bOneImage);
    /// Loads the measured rows: image row n from projection n, lanes from detector rows.
    [[nodiscard]] bool SetRawData(const HostRows<const float>& rRows);
    void ClearDevice();

    const DeviceImage& GetRawImage() const { return m_bOneImage ? GetImage() : m_aRaw.GetImage(); }
    const DeviceImage& GetImage() const { return m_aProjs.GetImage(); }

private:
    CDeviceArray2D m_aRaw;
    CDeviceArray2D m_aProjs;
    int m_iSizeX = 0;
    int m_iProjs = 0;
    bool m_bOneImage = false;
};
