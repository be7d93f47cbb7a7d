#pragma once

#include "gpulib/Device/KernelParams.h"

/// Driver of the R-factor sums. Holds images by value, owns none.
class GRFactor
{
public:
    void SetProjSize(int iProjX, int iProjs);  ///< detector columns, length of the index list

    void SetProjIndexArray(const DeviceImage& rImage) { m_aIndex = rImage; }
    void SetProjsArray(const DeviceImage& rImage) { m_aProjs = rImage; }
    void SetRawProjsArray(const DeviceImage& rImage) { m_aRawProjs = rImage; }

    /// Adds the sums of |measured| of iRows rows to row 0 of rAccum (doubles, list length wide).
    [[nodiscard]] bool DoRaw(const DeviceImage& rAccum, int iRows);
    /// Adds the sums of |working| of iRows rows to row iIter of rAccum.
    [[nodiscard]] bool DoDif(const DeviceImage& rAccum, int iIter, int iRows);

private:
    [[nodiscard]] bool mLaunch(const DeviceImage& rSource, const DeviceImage& rAccum, int iIter,
                               int iRows);
    DeviceImage m_aIndex, m_aProjs, m_aRawProjs;
    int m_iProjX = 0;
    int m_iProjs = 0;
};
