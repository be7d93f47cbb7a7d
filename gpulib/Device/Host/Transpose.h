#pragma once

#include "gpulib/Device/DeviceImage.h"

// Copies between host rows, where every row of the batch lies apart, and images of the host
// backend, where the rows are interleaved. The rectangle has been checked by the caller.

/// Lanes that the source lacks become 0.
void Interleave(const DeviceImage& rImage, const HostRows<const float>& rSource, int iX0, int iY0,
                int iWidth, int iHeight);

/// Lanes that the destination lacks are left out.
void Deinterleave(const DeviceImage& rImage, const HostRows<float>& rDest, int iX0, int iY0,
                  int iWidth, int iHeight);
