#pragma once

#include "gpulib/Device/DeviceMath.h"
#include "gpulib/Device/KernelParams.h"

// The arithmetic of the projectors: the only place that knows these formulas. Contraction of
// multiply-adds must be off where this is compiled, so that the geometry (sample count, sample
// positions, detector coordinates, skip rules) has the same bits everywhere.
//
// T is float, or a vector of floats that stands for one value of several rows.

/// All rays of one projection of a slice with a frame of one zero texel: the sample i of detector
/// column x lies at texel (RayX, RayZ), the centre of texel 0 being 0.
struct RayGeometry
{
    float fCos, fSin;
    float fCentreX, fCentreZ;  ///< texel coordinates of the rotation axis
    float fCentreU;            ///< detector coordinate of the axis
    float fHalf;               ///< half the length of the rays
    int iSamples;              ///< per ray, one per texel of length; may be 0
};

/// Whether the rays move faster along X than along Z.
DEVICE_FN bool RunAlongX(const RayGeometry& rRays)
{
    return rRays.fSin * rRays.fSin > rRays.fCos * rRays.fCos;
}

/// \param iVolX, iVolZ  size of the slice without its frame
DEVICE_FN RayGeometry MakeRays(float fCos, float fSin, int iVolX, int iVolZ, int iProjX)
{
    RayGeometry aRays;
    aRays.fCos = fCos;
    aRays.fSin = fSin;
    aRays.fCentreX = (iVolX + 1) * 0.5f;
    aRays.fCentreZ = (iVolZ + 1) * 0.5f;
    aRays.fCentreU = (iProjX - 1) * 0.5f;
    // The cosine keeps its sign: beyond 90 degrees rays get shorter and end up empty.
    const float fLength = iVolZ * fCos + iVolX * (fSin < 0.0f ? -fSin : fSin) + 0.5f;
    const bool bUsable = fLength > -2.0f && fLength < 1e9f;  // false for NaN
    const int iLength = bUsable ? static_cast<int>(fLength) : -2;
    aRays.fHalf = (iLength + 1) * 0.5f;
    aRays.iSamples = iLength + 2;
    return aRays;
}

/// Middle of the ray of detector column iX.
DEVICE_FN float RayMiddleX(const RayGeometry& rRays, int iX)
{
    return rRays.fCentreX + (iX - rRays.fCentreU) * rRays.fCos;
}
DEVICE_FN float RayMiddleZ(const RayGeometry& rRays, int iX)
{
    return rRays.fCentreZ + (iX - rRays.fCentreU) * rRays.fSin;
}

/// How far sample i lies from the middle of the ray; exact, as whole and half numbers are.
DEVICE_FN float RayStep(const RayGeometry& rRays, int i)
{
    return static_cast<float>(i) - rRays.fHalf;
}

/// Coordinate so far from the middle of the ray; the slope is -sin for X, cos for Z. Never falls
/// (or never rises) along the ray, rounding included.
DEVICE_FN float RaySample(float fMiddle, float fSlope, float fStep)
{
    return fMiddle + fSlope * fStep;
}

/// Samples [iFirst, iEnd) of a ray.
struct RaySpan
{
    int iFirst, iEnd;
};

/// First index from iFirst on for which a condition holds that, once true, stays so; iEnd: none.
template <class F>
DEVICE_FN int FirstThat(int iFirst, int iEnd, F fHolds)
{
    while (iFirst < iEnd)
    {
        const int iMiddle = iFirst + (iEnd - iFirst) / 2;
        if (fHolds(iMiddle))
            iEnd = iMiddle;
        else
            iFirst = iMiddle + 1;
    }
    return iFirst;
}

/// Cuts a span down to the samples whose coordinate lies from 0 to below fLimit.
DEVICE_FN RaySpan CutSpan(RaySpan aSpan, const RayGeometry& rRays, float fMiddle, float fSlope,
                          float fLimit)
{
    const auto IsFrom = [&](int i, float fFrom)
    { return RaySample(fMiddle, fSlope, RayStep(rRays, i)) >= fFrom; };
    const bool bRises = fSlope >= 0.0f;
    aSpan.iFirst = FirstThat(aSpan.iFirst, aSpan.iEnd,
                             [&](int i) { return bRises ? IsFrom(i, 0.0f) : !IsFrom(i, fLimit); });
    aSpan.iEnd = FirstThat(aSpan.iFirst, aSpan.iEnd,
                           [&](int i) { return bRises ? IsFrom(i, fLimit) : !IsFrom(i, 0.0f); });
    return aSpan;
}

/// The samples of the ray with this middle that lie between texels of the slice and its frame; the
/// others are exact zeros.
DEVICE_FN RaySpan TouchSpan(const RayGeometry& rRays, float fMiddleX, float fMiddleZ, int iVolX,
                            int iVolZ)
{
    const RaySpan aAll = {0, rRays.iSamples > 0 ? rRays.iSamples : 0};
    const RaySpan aX = CutSpan(aAll, rRays, fMiddleX, -rRays.fSin, iVolX + 1.0f);
    return CutSpan(aX, rRays, fMiddleZ, rRays.fCos, iVolZ + 1.0f);
}

/// Detector coordinate of the voxel centre (fX, fZ), counted from the middle of the slice.
DEVICE_FN float DetectorCoordinate(float fCentreU, float fX, float fZ, float fCos, float fSin)
{
    return fCentreU + (fX * fCos + fZ * fSin);
}

/// Whether a voxel gets nothing from a row whose valid columns are [fFirst, fEnd). The two methods
/// differ at the last column.
template <class T>
DEVICE_FN auto SartSkips(T fU, T fFirst, T fEnd)
{
    return (fU < fFirst) | (fU > fEnd - 1.0f);
}
template <class T>
DEVICE_FN auto EmSkips(T fU, T fFirst, T fEnd)
{
    return (fU < fFirst) | (fU >= fEnd - 1.0f);
}

/// Nothing stays below 0; NaN becomes 0.
template <class T>
DEVICE_FN T ClampNegative(T fValue)
{
    return fValue > T{} ? fValue : T{};
}

/// New value of a voxel: the sum over the projections that reach it counts with this factor.
template <class T>
DEVICE_FN T SartFactor(T fHits, float fRelax)
{
    return fRelax / (fHits + 1e-6f);
}
template <class T>
DEVICE_FN T SartUpdate(T fOld, T fSum, T fFactor)
{
    return ClampNegative<T>(fOld + fSum * fFactor);
}
/// \param fFactor  relaxation over the projections of the set, whether they reach the voxel or not
template <class T>
DEVICE_FN T EmUpdate(T fOld, T fSum, T fHits, float fFactor)
{
    return ClampNegative<T>(fOld * (1.0f + fFactor * (fSum - fHits)));
}

/// Measured over computed intensity; 1 where there is nothing to compare.
template <class T>
DEVICE_FN T Ratio(T fMeasured, T fSum)
{
    return ((fMeasured >= T{}) & (fSum != T{})) ? fMeasured / fSum : T{} + 1.0f;
}

/// A weighted measured value against its ray sum.
template <class T>
DEVICE_FN T CompareValue(ECombine eOperation, T fMeasured, T fSum)
{
    return eOperation == ECombine::eDiff ? fMeasured - fSum : Ratio<T>(fMeasured, fSum);
}

/// What a value adds to a sum of absolute values; missing pixels (-1e15 and below) and NaN nothing.
template <class T>
DEVICE_FN T AbsIfPresent(T fValue)
{
    const T fAbs = fValue < T{} ? -fValue : fValue;
    return fValue > T{} - 1e15f ? fAbs : T{};
}
