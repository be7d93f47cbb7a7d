#pragma once

#include <cstddef>

#include "gpulib/Device/KernelParams.h"
#include "gpulib/Device/Limits.h"
#include "gpulib/Device/ProjMath.h"

// The kernels of the host backend, one set of functions per instruction set. What does not depend
// on the instruction set (index list, angles, ranges) is resolved once, before the call.
//
// Images have 1, 4, 8, 16 or 32 lanes. Every function works on its share of independent pieces, so
// that a device with several cores can split the work; results do not depend on the split.

constexpr int g_iMaxLanes = 32;
constexpr int g_iWideLanes = 16;

/// One projection of a forward projection.
struct ForwardView
{
    RayGeometry aRays;
    float* pfSums;  ///< row of the result, [x][lane]
};

/// One projection of a back projection.
struct BackView
{
    float fCos, fSin;
    const float* pfRow;             ///< working row, [x][lane]
    float afFirst[g_iMaxLanes];     ///< valid columns per lane, first and one past last
    float afEnd[g_iMaxLanes];       ///< lanes that are not in use repeat the last one in use
    float fAllFirst, fAllEnd;       ///< columns valid for all lanes
    float fAnyFirst, fAnyEnd;       ///< outside them none is valid for any lane
    float fAllFrom, fAllTo;         ///< a tile whose middle lies between falls on columns
                                    ///< valid for all lanes, and on the row, with all its voxels
    float fNoneBefore, fNoneAfter;  ///< a tile whose middle lies outside falls on none of any lane
};

/// A piece [iFirst, iEnd) of some sequence.
struct Share
{
    int iFirst, iEnd;
};

/// Factors of a kernel that is a product of three, null for any other.
struct SmoothFactors
{
    const float* pfX = nullptr;
    const float* pfY = nullptr;
    const float* pfZ = nullptr;
};

struct HostKernels
{
    const char* pcName;
    /// What serves images of fewer than g_iWideLanes lanes, null: the same. Registers of 512 bits
    /// that are mostly empty only slow their neighbours down.
    const HostKernels* pNarrow;
    /// Ray sums of a share of the views.
    void (*Forward)(const ForwardParams& rP, const ForwardView* pViews, Share aViews);
    /// All views into a share of the tile rows of the slice.
    void (*Back)(const BackParams& rP, const BackView* pViews, int iViews, Share aTileRows);
    /// All views of one set into the slice, and the ray sums of the next, whose views have one
    /// steep axis, of the result.
    void (*BackForward)(const BackParams& rBack, const BackView* pBack, int iBack,
                        const ForwardParams& rForward, const ForwardView* pForward, Share aForward);
    /// piRows: raw numbers of the projections, each once.
    void (*Combine)(const CombineParams& rP, const int* piRows, Share aRows);
    /// piRows: image rows to treat.
    void (*Weight)(const WeightParams& rP, const int* piRows, Share aRows);
    /// Totals of the rows in use, [list position][lane].
    void (*SumAbs)(const SumAbsParams& rP, const int* piRows, Share aRows, float* pfTotals);
    /// A share of the rows; images of one lane, whatever the registers hold.
    void (*Transform)(const TransformParams& rP, Share aRows);
    void (*CompareSums)(const CompareParams& rP, Share aRows);
    /// A share of the strips of the volume, numbered [strip of a slice][slice].
    /// pfScratch: SmoothScratch() values, finite, for this call alone.
    void (*Smooth)(const SmoothParams& rP, const SmoothFactors& rFactors, Share aStrips,
                   float* pfScratch);
};

/// Width and height of the tiles of a back projection.
constexpr int g_iBackRun = 16, g_iBackTile = 32;
/// No voxel of a tile is projected farther than this from the middle of the tile, columns: half the
/// diagonal, and some margin.
constexpr float g_fTileReach = 18.0f;

/// Voxels of a slice that are smoothed together: what the kernel touches around them stays in the
/// second level cache. The height is that of a strip.
constexpr int g_iSmoothTileX = 256, g_iSmoothTileY = 32;

/// Room for one row of a tile with its neighbours, and for whole registers past its end.
DEVICE_FN std::size_t SmoothPitch(int iKernelX)
{
    return (std::size_t(g_iSmoothTileX) + iKernelX + 63) / 64 * 64 + 64;
}
/// The tile with its neighbours, and one tile of sums.
DEVICE_FN std::size_t SmoothScratch(int iKernelX, int iKernelY)
{
    return SmoothPitch(iKernelX) * (std::size_t(g_iSmoothTileY) + iKernelY) +
           std::size_t(g_iSmoothTileX) * g_iSmoothTileY;
}

namespace Baseline
{
extern const HostKernels g_aKernels;
}
#ifdef TALVEN_HOST_X86
namespace Avx2
{
extern const HostKernels g_aKernels;
}
namespace Avx512
{
extern const HostKernels g_aKernels;
}
#endif
