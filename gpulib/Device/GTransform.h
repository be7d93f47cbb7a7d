#pragma once

#include <span>

#include "gpulib/Device/KernelParams.h"

/// Driver of the resampling of a measured projection. Holds images by value, owns none.
class GTransform
{
public:
    /// x' = m0 x + m1 y + m4, y' = m2 x + m3 y + m5
    void SetMatrix(std::span<const float, 6> fMatrix);
    void SetIntScale(std::span<const float, 6> fScale);
    void SetAProjSize(int iX)
    {
        m_aParams.iProjX = iX;
    }  ///< columns of the projection in the stack
    void SetMProjArray(const DeviceImage& rImage) { m_aParams.aMeasured = rImage; }

    /// Fills rows 0 .. iSizeY - 1 of both images with rows iStartY, ... of the projection.
    [[nodiscard]] bool DoIt(const DeviceImage& rProj, const DeviceImage& rMiss, int iStartY,
                            int iSizeY)
    {
        return mLaunch(false, rProj, rMiss, iStartY, iSizeY);
    }
    /// The same with the logarithmic scale.
    [[nodiscard]] bool DoItLog(const DeviceImage& rProj, const DeviceImage& rMiss, int iStartY,
                               int iSizeY)
    {
        return mLaunch(true, rProj, rMiss, iStartY, iSizeY);
    }

private:
    [[nodiscard]] bool mLaunch(bool bLog, const DeviceImage& rProj, const DeviceImage& rMiss,
                               int iStartY, int iSizeY);
    TransformParams m_aParams;
};
