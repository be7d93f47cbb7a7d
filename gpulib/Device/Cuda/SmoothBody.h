#pragma once

#include "gpulib/Device/Cuda/Texels.h"
#include "gpulib/Device/KernelParams.h"

// Body of the smoothing kernel.

constexpr int g_iSmoothVoxels = 4;  ///< along Z; one thread reads a weight once for all of them

/// Voxels (iX, iY, iZ), (iX, iY, iZ + 1), ... of the result.
CUDA_FN void SmoothBody(int iX, int iY, int iZ, const SmoothParams& rP)
{
    const DeviceImage &rVol = rP.aVol, &rKernel = rP.aKernel;
    const int iHalfX = rKernel.iWidth / 2, iHalfY = rKernel.iHeight / 2;
    const int iHalfZ = rKernel.iDepth / 2;
    float afSum[g_iSmoothVoxels] = {};
    for (int c = 0; c < rKernel.iDepth; ++c)
        for (int b = 0; b < rKernel.iHeight; ++b)
        {
            const float* pfWeight = TableRow<float>(rKernel, c * rKernel.iHeight + b);
            const float* apfRow[g_iSmoothVoxels];
            for (int v = 0; v < g_iSmoothVoxels; ++v)
                apfRow[v] = VolumeRow(rVol, iY + b - iHalfY, iZ + v + c - iHalfZ);
            for (int a = 0; a < rKernel.iWidth; ++a)
            {
                const int iFrom = ClampIndex(iX + a - iHalfX, rVol.iWidth);
                for (int v = 0; v < g_iSmoothVoxels; ++v)
                    afSum[v] = fmaf(pfWeight[a], apfRow[v][iFrom], afSum[v]);
            }
        }
    for (int v = 0; v < g_iSmoothVoxels; ++v)
        if (iZ + v < rVol.iDepth) RowOf(rP.aOut, (iZ + v) * rVol.iHeight + iY)[iX] = afSum[v];
}
