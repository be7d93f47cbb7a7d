#pragma once

#include <cstddef>
#include <cstring>

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

/// Whether all samples of these slices are 0, as in a volume that nobody has filled yet.
inline bool IsZero(const Util_Volume& rVolume, int iY, int iRows)
{
    const std::size_t tX = rVolume.GetSizeX();
    for (int z = 0; z < rVolume.GetSizeZ(); ++z)
    {
        const float* pfRows = rVolume.GetSliceXY(z) + tX * iY;
        const std::size_t tBytes = tX * iRows * sizeof(float);
        // Equal to itself one sample on, and the first one is 0.
        if (pfRows[0] != 0 || std::memcmp(pfRows, pfRows + 1, tBytes - sizeof(float)) != 0)
            return false;
    }
    return true;
}
