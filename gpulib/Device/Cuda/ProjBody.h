#pragma once

#include "gpulib/Device/Cuda/Texels.h"
#include "gpulib/Device/KernelParams.h"
#include "gpulib/Device/ProjMath.h"

// Bodies of the projectors: what one thread does.

/// Raw number at a list position; false when the stack has no such projection.
CUDA_FN bool ReadIndex(const DeviceImage& rIndex, int iPosition, int iProjs, int& rProj)
{
    const unsigned int uiProj = TableRow<unsigned int>(rIndex, 0)[iPosition];
    rProj = static_cast<int>(uiProj);
    return uiProj < static_cast<unsigned int>(iProjs);
}

/// One ray sum, for detector column iX at position iFirst + iPosition of the list.
template <class SAMPLER>
CUDA_FN void ForwardBody(int iX, int iPosition, int iLane, const ForwardParams& rP)
{
    int iProj;
    if (!ReadIndex(rP.aProjIndex, rP.iFirst + iPosition, rP.aSums.iHeight, iProj)) return;
    const Pair aCosSin = TableRow<Pair>(rP.aCosSin, 0)[iProj];
    const RayGeometry aRays = MakeRays(aCosSin.fA, aCosSin.fB, rP.iVolX, rP.iVolZ, rP.iProjX);
    const float fMiddleX = RayMiddleX(aRays, iX), fMiddleZ = RayMiddleZ(aRays, iX);
    const RaySpan aSpan = TouchSpan(aRays, fMiddleX, fMiddleZ, rP.iVolX, rP.iVolZ);
    float fSum = 0.0f;
#pragma unroll 8  // fetches in flight
    for (int i = aSpan.iFirst; i < aSpan.iEnd; ++i)
        fSum += SAMPLER::Sample(rP.aVol, RaySample(fMiddleX, -aRays.fSin, aRays.fHalf, i),
                                RaySample(fMiddleZ, aRays.fCos, aRays.fHalf, i), iLane);
    StoreTexel(rP.aSums, iX, iProj, iLane, fSum);
}

constexpr int g_iBackVoxels = 4;  ///< along Z; one thread reads angle and range once for all

/// Updates voxels (iX, iZ), (iX, iZ + 1), ... of a slice in place.
template <class SAMPLER, EUpdate UPDATE>
CUDA_FN void BackBody(int iX, int iZ, int iLane, const BackParams& rP)
{
    const float fCentreU = (rP.iProjX - 1) * 0.5f;
    const float fX = iX - (rP.iVolX - 1) * 0.5f;
    float afZ[g_iBackVoxels], afSum[g_iBackVoxels], afHits[g_iBackVoxels];
    for (int v = 0; v < g_iBackVoxels; ++v)
    {
        afZ[v] = (iZ + v) - (rP.iVolZ - 1) * 0.5f;
        afSum[v] = afHits[v] = 0.0f;
    }
#pragma unroll 2
    for (int p = rP.iFirst; p < rP.iEnd; ++p)
    {
        int iProj;
        if (!ReadIndex(rP.aProjIndex, p, rP.aProjs.iHeight, iProj)) continue;
        const Pair aCosSin = TableRow<Pair>(rP.aCosSin, 0)[iProj];
        const Pair aRange = TableRow<Pair>(rP.aRangeX, iProj)[rP.iY + iLane];
#pragma unroll
        for (int v = 0; v < g_iBackVoxels; ++v)
        {
            const float fU = DetectorCoordinate(fCentreU, fX, afZ[v], aCosSin.fA, aCosSin.fB);
            const bool bSkip = UPDATE == EUpdate::eSart ? SartSkips(fU, aRange.fA, aRange.fB)
                                                        : EmSkips(fU, aRange.fA, aRange.fB);
            const float fValue = SAMPLER::SampleRow(rP.aProjs, fU, iProj, iLane);
            afSum[v] = bSkip ? afSum[v] : afSum[v] + fValue;
            afHits[v] = bSkip ? afHits[v] : afHits[v] + 1.0f;
        }
    }
    const float fProjs = static_cast<float>(rP.iEnd - rP.iFirst);
#pragma unroll
    for (int v = 0; v < g_iBackVoxels; ++v)
    {
        if (iZ + v >= rP.iVolZ) return;
        const float fOld = LoadTexel(rP.aVol, iX + 1, iZ + v + 1, iLane);
        const float fNew = UPDATE == EUpdate::eSart
                               ? SartUpdate(fOld, afSum[v], SartFactor(afHits[v], rP.fRelax))
                               : EmUpdate(fOld, afSum[v], afHits[v], rP.fRelax / fProjs);
        StoreTexel(rP.aVol, iX + 1, iZ + v + 1, iLane, fNew);
    }
}
