#pragma once

#include "gpulib/Device/DeviceImage.h"

// Checks that kernel drivers and backends share: kernels trust what passed here and index without
// looking.
// Each returns true, or false with the reason noted; pcKernel names the caller in it.

/// An image of at least iWidth x iHeight elements with the given channels and bytes per value.
[[nodiscard]] bool CheckImage(const char* pcKernel, const char* pcImage, const DeviceImage& rImage,
                              int iWidth, int iHeight, int iChannels = 1, int iBytes = 4);

/// Two batch images of the same width and lanes.
[[nodiscard]] bool CheckSameBatch(const char* pcKernel, const DeviceImage& rA,
                                  const DeviceImage& rB);

/// A range of list positions within the index list.
[[nodiscard]] bool CheckRange(const char* pcKernel, const DeviceImage& rIndex, int iFirst,
                              int iEnd);

/// Extents that stay exact as float coordinates.
[[nodiscard]] bool CheckExtents(const char* pcKernel, int iVolX, int iVolZ, int iProjX);
[[nodiscard]] bool CheckImageExtents(const char* pcKernel, int iX, int iY);

// The same for backends.

/// A rectangle of iWidth x iHeight elements within an image of floats, of one channel.
[[nodiscard]] bool CheckRectangle(const char* pcOperation, const DeviceImage& rImage, int iX0,
                                  int iY0, int iWidth, int iHeight);

/// Two images of the same sizes.
[[nodiscard]] bool CheckCopy(const DeviceImage& rDest, const DeviceImage& rSource);
