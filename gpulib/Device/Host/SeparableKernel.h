#pragma once

#include <vector>

#include "gpulib/Device/Host/HostKernels.h"

/// The three factors of a kernel that is their product; empty for any other kernel.
struct SeparableKernel
{
    std::vector<float> vfX, vfY, vfZ;  ///< the absolute values of X and of Y add up to 1

    SmoothFactors GetFactors() const
    {
        if (vfX.empty()) return {};
        return {vfX.data(), vfY.data(), vfZ.data()};
    }
};

/// Splits a kernel of shape [z][y][x] when the product of the factors differs from it by at most
/// 5e-7 of the sum of its absolute values. So does then any smoothed voxel, relative to the
/// largest one around it.
SeparableKernel Separate(const float* pfKernel, int iX, int iY, int iZ);
