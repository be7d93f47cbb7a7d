#pragma once

#include "gpulib/Device/KernelParams.h"

// What CBackend checks before any backend works: kernels and copies trust it and index without
// looking. Each returns true, or false with the reason noted.

[[nodiscard]] bool CheckParams(const ForwardParams& rParams);
[[nodiscard]] bool CheckParams(const CombineParams& rParams);
[[nodiscard]] bool CheckParams(const WeightParams& rParams);
[[nodiscard]] bool CheckParams(const BackParams& rParams);
[[nodiscard]] bool CheckParams(const SumAbsParams& rParams);
[[nodiscard]] bool CheckParams(const TransformParams& rParams);
[[nodiscard]] bool CheckParams(const CompareParams& rParams);
[[nodiscard]] bool CheckParams(const SmoothParams& rParams);

/// Sizes of an image that is to be made.
[[nodiscard]] bool CheckSizes(const char* pcKind, const DeviceImage& rImage);
/// A rectangle of iWidth x iHeight elements within an image of floats, of one channel.
[[nodiscard]] bool CheckRectangle(const char* pcOperation, const DeviceImage& rImage, int iX0,
                                  int iY0, int iWidth, int iHeight);
/// An image whose values are copied as they stand.
[[nodiscard]] bool CheckTable(const char* pcOperation, const DeviceImage& rImage);
/// Two images of the same sizes.
[[nodiscard]] bool CheckSameSize(const char* pcOperation, const DeviceImage& rDest,
                                 const DeviceImage& rSource);
