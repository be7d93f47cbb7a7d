#pragma once

#include <span>

#include "gpulib/Device/DeviceArray2D.h"

/// Valid detector columns of every row of a band: element (j, n) is (first, one past last) of
/// projection n at detector row iStartY + j.
class CRangeTexture
{
public:
    [[nodiscard]] bool Create(int iSizeY, int iProjs);
    /// \param uiRangeX  pairs of the whole stack, shape [proj][row][2]
    /// \param iProjY    rows of the stack
    /// \param iStartY   first row of the band
    [[nodiscard]] bool SetData(std::span<const unsigned int> uiRangeX, int iProjY, int iStartY);
    void ClearDevice() { m_aRangeX.Free(); }
    const DeviceImage& GetImage() const { return m_aRangeX.GetImage(); }

private:
    CDeviceArray2D m_aRangeX;
    int m_iSizeY = 0;
    int m_iProjs = 0;
};
