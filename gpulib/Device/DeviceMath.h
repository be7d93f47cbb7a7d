#pragma once

#include "gpulib/Device/DeviceImage.h"

// Macros of the arithmetic that every backend shares: such a function is compiled by g++ for each
// instruction set of the host backend and by nvcc for the GPU, and must stay inline in all of them.
#if defined(__CUDACC__)
#define DEVICE_FN __host__ __device__ __forceinline__
#else
#define DEVICE_FN [[gnu::always_inline]] static inline
#endif

/// First value of an image row, in one group of lanes.
DEVICE_FN float* RowOf(const DeviceImage& rImage, int iRow, int iGroup = 0)
{
    const std::size_t tRows = static_cast<std::size_t>(rImage.iHeight) * rImage.iDepth * iGroup;
    return reinterpret_cast<float*>(static_cast<char*>(rImage.pvData) +
                                    (tRows + iRow) * rImage.tPitch);
}

DEVICE_FN int ClampIndex(int i, int iSize)
{
    return i < 0 ? 0 : (i < iSize ? i : iSize - 1);
}

/// Row iY of slice iZ of a volume, the nearest one where it has none.
DEVICE_FN const float* VolumeRow(const DeviceImage& rVol, int iY, int iZ)
{
    return RowOf(rVol, ClampIndex(iZ, rVol.iDepth) * rVol.iHeight + ClampIndex(iY, rVol.iHeight));
}
