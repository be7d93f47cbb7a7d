#pragma once

#include "gpulib/Device/KernelParams.h"
#include "gpulib/Device/ProjMath.h"

// The kernels of the host backend, one set of functions per instruction set. What does not depend
// on the instruction set (index list, angles, ranges) is resolved once, before the call.
//
// Images have 1, 4, 8 or 16 lanes. Every function works on its share of independent pieces, so
// that a device with several cores can split the work; results do not depend on the split.

constexpr int g_iMaxLanes = 16;

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
    const float* pfRow;          ///< working row, [x][lane]
    float afFirst[g_iMaxLanes];  ///< valid columns per lane, first and one past last
    float afEnd[g_iMaxLanes];    ///< lanes that are not in use repeat the last one in use
    float fAllFirst, fAllEnd;    ///< intersection of the lanes
    float fAnyFirst, fAnyEnd;    ///< union of the lanes
};

/// A piece [iFirst, iEnd) of some sequence.
struct Share
{
    int iFirst, iEnd;
};

struct HostKernels
{
    const char* pcName;
    /// Ray sums of a share of the views.
    void (*Forward)(const ForwardParams& rP, const ForwardView* pViews, Share aViews);
    /// All views into a share of the tile rows of the slice.
    void (*Back)(const BackParams& rP, const BackView* pViews, int iViews, Share aTileRows);
    /// piRows: raw numbers of the projections, one per list position from rP.iFirst on.
    void (*Combine)(const CombineParams& rP, const int* piRows, Share aRows);
    /// piRows: image rows to treat.
    void (*Weight)(const WeightParams& rP, const int* piRows, Share aRows);
    /// Totals of the rows in use, [list position][lane].
    void (*SumAbs)(const SumAbsParams& rP, const int* piRows, Share aRows, float* pfTotals);
};

/// Height of the tiles of a back projection.
constexpr int g_iBackTile = 32;

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
