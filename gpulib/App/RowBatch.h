#pragma once

#include <cstddef>

#include "Util/Util_Volume.h"
#include "gpulib/Device/DeviceImage.h"

/// X-Z slices iY, iY + 1, ... (iRows of them) of a volume as the source of a batch image.
inline HostRows<const float> GetBatch(const Util_Volume& rVolume, int iY, int iRows)
{
    const std::size_t tX = rVolume.GetSizeX();
    return {rVolume.GetData() + tX * iY, tX * rVolume.GetSizeY(), tX, iRows};
}

/// The same as the target.
inline HostRows<float> GetBatch(Util_Volume& rVolume, int iY, int iRows)
{
    const std::size_t tX = rVolume.GetSizeX();
    return {rVolume.GetData() + tX * iY, tX * rVolume.GetSizeY(), tX, iRows};
}
