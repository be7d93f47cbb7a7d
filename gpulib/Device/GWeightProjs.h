#pragma once

#include "gpulib/Device/GDriver.h"
#include "gpulib/Device/KernelParams.h"

/// Driver of the box weight kernels, which work in place.
///
/// The first two operations address rows by position [iFirst, iEnd), the last two by the raw
/// numbers that the index list holds at these positions.
class GWeightProjs : public GDriver
{
public:
    [[nodiscard]] bool NoWeightRef(SetRange aRows) const;  ///< working = measured
    [[nodiscard]] bool WeightRef(SetRange aRows) const;    ///< measured *= pre-weight
    [[nodiscard]] bool WeightRecon(SetRange aSet) const;   ///< working *= projection weight
    [[nodiscard]] bool WeightProjs(SetRange aSet) const;   ///< ray sums /= pre-weight

private:
    [[nodiscard]] bool mLaunch(EWeight eOperation, SetRange aRows, const DeviceImage& rOut,
                               const DeviceImage& rIn, const DeviceImage& rWeight) const;
};
