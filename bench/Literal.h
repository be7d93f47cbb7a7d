#pragma once

#include "bench/Scene.h"

// The formulas written down as they stand, one row at a time and one value after another: what the
// kernels are compared with. Compiled for the baseline instruction set at -O3.

/// Ray sums of all projections for row iRow: every sample of every ray, clamped bilinear reads.
/// \param rSums  receives [projection][column]
void LiteralForward(const Scene& rScene, int iRow, std::vector<float>& rSums);

/// One SART update of row iRow by all projections.
/// \param rSlice  receives [z][x]
void LiteralBack(const Scene& rScene, int iRow, std::vector<float>& rSlice);

/// Smooths slices [iFirst, iEnd) of a volume: the three loops of the kernel within the three of the
/// voxels, every position clamped.
/// \param piSize    X, Y, Z of the volume
/// \param piKernel  X, Y, Z of the kernel
/// \param pfOut     receives the slices
void LiteralSmooth(const float* pfVolume, const int* piSize, const float* pfKernel,
                   const int* piKernel, int iFirst, int iEnd, float* pfOut);
