#pragma once

#include "gpulib/Device/Cuda/Texels.h"
#include "gpulib/Device/KernelParams.h"
#include "gpulib/Device/Limits.h"
#include "gpulib/Device/ProjMath.h"

// Bodies of the projectors: what one thread does, for four rows of the batch.

/// Raw number at a list position; false when the stack has no such projection.
CUDA_FN bool ReadIndex(const DeviceImage& rIndex, int iPosition, int iProjs, int& rProj)
{
    const unsigned int uiProj = TableRow<unsigned int>(rIndex, 0)[iPosition];
    rProj = static_cast<int>(uiProj);
    return uiProj < static_cast<unsigned int>(iProjs);
}

/// Ray sums become what a job makes of them.
CUDA_FN void ApplyRule(const CompareRule& rRule, int iX, int iProj, RowQuad aRows, Quad& rSum)
{
    if (rRule.eOperation == ECombine::eSum) return;
    const Quad aRaw = Load(TexelOf(rRule.aRaw, iX, iProj, aRows));
    const float fWeight = TableRow<float>(rRule.aWeight, iProj)[iX];
    const float fAfter = rRule.aAfter.pvData ? TableRow<float>(rRule.aAfter, iProj)[iX] : 1.0f;
    for (int l = 0; l < 4; ++l)
        rSum.af[l] = CompareValue(rRule.eOperation, aRaw.af[l] * fWeight, rSum.af[l]) * fAfter;
}

/// Ray sums for detector column iX at a position of the list, counted from iFirst.
CUDA_FN void ForwardBody(int iX, int iPosition, RowQuad aRows, const ForwardParams& rP)
{
    int iProj;
    if (!ReadIndex(rP.aProjIndex, rP.iFirst + iPosition, rP.aSums.iHeight, iProj)) return;
    const Pair aCosSin = TableRow<Pair>(rP.aCosSin, 0)[iProj];
    const RayGeometry aRays = MakeRays(aCosSin.fA, aCosSin.fB, rP.iVolX, rP.iVolZ, rP.iProjX);
    const float fMiddleX = RayMiddleX(aRays, iX), fMiddleZ = RayMiddleZ(aRays, iX);
    const RaySpan aSpan = TouchSpan(aRays, fMiddleX, fMiddleZ, rP.iVolX, rP.iVolZ);
    const CTexels aUpper(rP.aVol, 0, aRows, true), aLower(rP.aVol, 1, aRows, true);
    float fStep = RayStep(aRays, aSpan.iFirst);
    Quad aSum = {};
#pragma unroll 2
    for (int i = aSpan.iFirst; i < aSpan.iEnd; ++i, fStep += 1.0f)
    {
        const float fX = RaySample(fMiddleX, -aRays.fSin, fStep), fLeftX = RoundDown(fX);
        const float fZ = RaySample(fMiddleZ, aRays.fCos, fStep), fUpperZ = RoundDown(fZ);
        const float4* const pUpper = aUpper.Find(fLeftX, __float_as_uint(fUpperZ));
        const float4* const pLower = aLower.Find(fLeftX, __float_as_uint(fUpperZ));
        const float fRight = PartAfter(fX, fLeftX), fLeft = 1.0f - fRight;
        const float fDown = PartAfter(fZ, fUpperZ), fUp = 1.0f - fDown;
        AddWeighted(aSum, fLeft * fUp, Fetch(pUpper));
        AddWeighted(aSum, fRight * fUp, Fetch(pUpper + g_iQuads));
        AddWeighted(aSum, fLeft * fDown, Fetch(pLower));
        AddWeighted(aSum, fRight * fDown, Fetch(pLower + g_iQuads));
    }
    ApplyRule(rP.aRule, iX, iProj, aRows, aSum);
    Store(TexelOf(rP.aSums, iX, iProj, aRows), aSum);
}

constexpr int g_iBackVoxels = 4;  ///< along Z; one thread reads angle and range once for all

/// What four voxels of four rows have got from a set.
struct BackSums
{
    Quad aSum[g_iBackVoxels];
    /// From how many projections that some voxel or row does not see, two rows to a number:
    /// registers are what limits the threads of a multiprocessor.
    unsigned int auHits[g_iBackVoxels][2];
    float fHits;  ///< from how many others
};
static_assert(g_iMaxGrid <= 0xffff);

template <EUpdate UPDATE>
CUDA_FN bool Skips(float fU, Pair aRange)
{
    return UPDATE == EUpdate::eSart ? SartSkips(fU, aRange.fA, aRange.fB)
                                    : EmSkips(fU, aRange.fA, aRange.fB);
}

/// Adds one projection. SEEN: all voxels see it in all rows.
template <EUpdate UPDATE, bool SEEN>
CUDA_FN void AddProjection(const CTexels& rRows, int iProj, int iProjX, const float* pfU,
                           const Pair* pRanges, BackSums& rSums)
{
    const float fLast = static_cast<float>(iProjX - 1);
    const float fLastLeft = g_fShift + fmaxf(fLast - 1.0f, 0.0f);
#pragma unroll
    for (int v = 0; v < g_iBackVoxels; ++v)
    {
        const float fInside = fminf(fmaxf(pfU[v], 0.0f), fLast);
        const float fLeftU = fminf(RoundDown(fInside), fLastLeft);
        const float fRight = PartAfter(fInside, fLeftU);
        const float4* const pLeft = rRows.Find(fLeftU, iProj);
        const Quad aLeft = Fetch(pLeft), aRight = Fetch(pLeft + g_iQuads);
#pragma unroll
        for (int l = 0; l < 4; ++l)
        {
            if (!SEEN && Skips<UPDATE>(pfU[v], pRanges[l])) continue;
            if (!SEEN) rSums.auHits[v][l / 2] += 1U << l % 2 * 16;
            float& rfSum = rSums.aSum[v].af[l];
            rfSum = fmaf(fRight, aRight.af[l], fmaf(1.0f - fRight, aLeft.af[l], rfSum));
        }
    }
    if (SEEN) rSums.fHits += 1.0f;
}

/// Updates voxels (iX, iZ), (iX, iZ + 1), ... of a slice in place.
template <EUpdate UPDATE>
CUDA_FN void BackBody(int iX, int iZ, RowQuad aRows, const BackParams& rP)
{
    const int iLastRow = rP.iRows - 1 - aRows.GetLane();  // of those in use, from the first of four
    if (iLastRow < 0) return;
    const float fX = iX - (rP.iVolX - 1) * 0.5f, fZ = iZ - (rP.iVolZ - 1) * 0.5f;
    const CTexels aPixels(rP.aProjs, 0, aRows, false);
    BackSums aSums = {};
    for (int p = rP.iFirst; p < rP.iEnd; ++p)
    {
        int iProj;
        if (!ReadIndex(rP.aProjIndex, p, rP.aProjs.iHeight, iProj)) continue;
        const Pair aCosSin = TableRow<Pair>(rP.aCosSin, 0)[iProj];
        float afU[g_iBackVoxels];
#pragma unroll
        for (int v = 0; v < g_iBackVoxels; ++v)
            afU[v] = DetectorCoordinate((rP.iProjX - 1) * 0.5f, fX, fZ + v, aCosSin.fA, aCosSin.fB);
        const Pair* const pRanges = TableRow<Pair>(rP.aRangeX, iProj) + (rP.iY + aRows.GetLane());
        Pair aRange[4];
        for (int l = 0; l < 4; ++l)
            aRange[l] = pRanges[static_cast<unsigned int>(min(l, iLastRow))];
        const Pair aAll = {
            fmaxf(fmaxf(aRange[0].fA, aRange[1].fA), fmaxf(aRange[2].fA, aRange[3].fA)),
            fminf(fminf(aRange[0].fB, aRange[1].fB), fminf(aRange[2].fB, aRange[3].fB))};
        // Coordinates never turn back from one voxel to the next.
        if (Skips<UPDATE>(afU[0], aAll) | Skips<UPDATE>(afU[g_iBackVoxels - 1], aAll))
            AddProjection<UPDATE, false>(aPixels, iProj, rP.iProjX, afU, aRange, aSums);
        else
            AddProjection<UPDATE, true>(aPixels, iProj, rP.iProjX, afU, aRange, aSums);
    }
    Quad aVoxel[g_iBackVoxels];
    for (int v = 0; v < g_iBackVoxels; ++v)  // all before any is stored: they travel together
        aVoxel[v] = Load(TexelOf(rP.aVol, iX + 1, min(iZ + v, rP.iVolZ - 1) + 1, aRows));
    const float fProjs = static_cast<float>(rP.iEnd - rP.iFirst);
#pragma unroll
    for (int v = 0; v < g_iBackVoxels; ++v)
    {
        for (int l = 0; l < 4; ++l)
        {
            float& rf = aVoxel[v].af[l];
            const unsigned int uiHits = aSums.auHits[v][l / 2] >> l % 2 * 16 & 0xffff;
            const float fSum = aSums.aSum[v].af[l];
            const float fHits = aSums.fHits + static_cast<float>(uiHits);
            rf = UPDATE == EUpdate::eSart ? SartUpdate(rf, fSum, SartFactor(fHits, rP.fRelax))
                                          : EmUpdate(rf, fSum, fHits, rP.fRelax / fProjs);
        }
        if (iZ + v < rP.iVolZ) Store(TexelOf(rP.aVol, iX + 1, iZ + v + 1, aRows), aVoxel[v]);
    }
}
