#pragma once

#include "gpulib/Device/GDriver.h"

/// Driver of the R-factor sums, over the whole index list.
class GRFactor : public GDriver
{
public:
    /// Adds the sums of |measured| of iRows rows to row 0 of rAccum (doubles, list length wide).
    [[nodiscard]] bool DoRaw(const DeviceImage& rAccum, int iRows) const
    {
        return mLaunch({}, rAccum, 0, iRows);
    }
    /// Adds the sums of |measured - ray sum| of iRows rows to row iIter of rAccum.
    [[nodiscard]] bool DoDif(const DeviceImage& rAccum, int iIter, int iRows) const
    {
        return mLaunch(m_aImages.aSums, rAccum, iIter, iRows);
    }

private:
    [[nodiscard]] bool mLaunch(const DeviceImage& rMinus, const DeviceImage& rAccum, int iIter,
                               int iRows) const;
};
