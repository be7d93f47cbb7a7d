#pragma once

#include "gpulib/Device/DeviceImage.h"

// Copies between host rows, where every row of the batch lies apart, and images of the host
// backend, where the rows are interleaved. The rectangle has been checked by the caller.

/// Lanes that the source lacks become 0.
void Interleave(const DeviceImage& rImage, const HostRows<const float>& rSource, int iX0, int iY0,
                int iWidth, int iHeight);

/// Puts images of rows that lie one after the other, as many as there are lanes, into the order of
/// the lanes in their own place. \param pfRoom  for one row of the image
void InterleaveInPlace(const DeviceImage& rImage, float* pfRoom);
/// The reverse.
void DeinterleaveInPlace(const DeviceImage& rImage, float* pfRoom);

/// Lanes that the destination lacks are left out.
void Deinterleave(const DeviceImage& rImage, const HostRows<float>& rDest, int iX0, int iY0,
                  int iWidth, int iHeight);
