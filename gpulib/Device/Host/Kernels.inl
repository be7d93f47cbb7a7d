// All kernels of one instruction set, for every lane count. Included inside its namespace.

#include "gpulib/Device/Host/Simd.inl"
// Simd.inl first.
#include "gpulib/Device/Host/BackPlaces.inl"
// BackPlaces.inl before Back.inl.
#include "gpulib/Device/Host/Back.inl"
#include "gpulib/Device/Host/RayTexels.inl"
// RayTexels.inl first.
#include "gpulib/Device/Host/Forward.inl"
// Back.inl and Forward.inl first.
#include "gpulib/Device/Host/BackForward.inl"
#include "gpulib/Device/Host/Smooth.inl"
#include "gpulib/Device/Host/Stream.inl"
#include "gpulib/Device/Host/Transform.inl"

// Calls the instance of a kernel for the lanes of an image.
#if TALVEN_VECTOR < 16
#define TALVEN_FOR_LANES(LANES, KERNEL, ...)           \
    if ((LANES) == 1) return KERNEL<1>(__VA_ARGS__);   \
    if ((LANES) == 4) return KERNEL<4>(__VA_ARGS__);   \
    if ((LANES) == 8) return KERNEL<8>(__VA_ARGS__);   \
    if ((LANES) == 16) return KERNEL<16>(__VA_ARGS__); \
    return KERNEL<32>(__VA_ARGS__);
#else
#define TALVEN_FOR_LANES(LANES, KERNEL, ...)           \
    if ((LANES) == 16) return KERNEL<16>(__VA_ARGS__); \
    return KERNEL<32>(__VA_ARGS__);
#endif

static void Forward(const ForwardParams& rP, const ForwardView* pViews, Share aViews)
{
    TALVEN_FOR_LANES(rP.aVol.iLanes, ForwardLanes, rP, pViews, aViews)
}

static void Back(const BackParams& rP, const BackView* pViews, int iViews, Share aTileRows)
{
    TALVEN_FOR_LANES(rP.aVol.iLanes, BackLanes, rP, pViews, iViews, aTileRows)
}

static void BackForward(const BackParams& rBack, const BackView* pBack, int iBack,
                        const ForwardParams& rForward, const ForwardView* pForward, Share aForward)
{
    TALVEN_FOR_LANES(rBack.aVol.iLanes, BackForwardLanes, rBack, pBack, iBack, rForward, pForward,
                     aForward)
}

static void Combine(const CombineParams& rP, const int* piRows, Share aRows)
{
    TALVEN_FOR_LANES(rP.aSums.iLanes, CombineLanes, rP, piRows, aRows)
}

static void Weight(const WeightParams& rP, const int* piRows, Share aRows)
{
    TALVEN_FOR_LANES(rP.aOut.iLanes, WeightLanes, rP, piRows, aRows)
}

static void SumAbs(const SumAbsParams& rP, const int* piRows, Share aRows, float* pfTotals)
{
    TALVEN_FOR_LANES(rP.aSource.iLanes, SumAbsLanes, rP, piRows, aRows, pfTotals)
}

#undef TALVEN_FOR_LANES
#undef TALVEN_INDEPENDENT
