#pragma once

#include <cuda_runtime.h>

#include "gpulib/Device/DeviceImage.h"

// Copies between an image and linear device memory of shape [y][row of the batch][x], which is the
// order of a volume in host memory: neighbouring rows of a batch lie next to each other there.

/// Part of an image: iWidth x iHeight elements from (iX0, iY0) on, iLanes rows of the batch.
struct ImageRegion
{
    DeviceImage aImage;
    int iX0 = 0, iY0 = 0;
    int iWidth = 0, iHeight = 0;
    int iLanes = 0;
};

/// Fills the region from pfLinear; lanes of the image that the region has not become zero there.
[[nodiscard]] bool Scatter(const ImageRegion& rRegion, float* pfLinear, cudaStream_t pStream);
/// The reverse.
[[nodiscard]] bool Gather(const ImageRegion& rRegion, float* pfLinear, cudaStream_t pStream);
