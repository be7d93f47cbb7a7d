#pragma once

#include "gpulib/Device/DeviceMath.h"

// The arithmetic of transforms and comparisons: the only place that knows these formulas, compiled
// without contraction of multiply-adds. T is float, or a vector of floats that stands for several
// columns of one row.

/// Position of pixel (fX, fY) in the measured image.
template <class T>
DEVICE_FN T MapU(T fX, float fY, const float* pfMatrix)
{
    return pfMatrix[4] + (fX * pfMatrix[0] + pfMatrix[1] * fY);
}
template <class T>
DEVICE_FN T MapV(T fX, float fY, const float* pfMatrix)
{
    return (fX * pfMatrix[2] + fY * pfMatrix[3]) + pfMatrix[5];
}

/// Whether a coordinate lies on an image whose last pixel is fLast; false for NaN.
template <class T>
DEVICE_FN auto IsOnImage(T fCoordinate, float fLast)
{
    return (fCoordinate >= T{}) & (fCoordinate <= T{} + fLast);
}

/// The nearest coordinate on the image; 0 for NaN.
template <class T>
DEVICE_FN T ClampToImage(T fCoordinate, float fLast)
{
    const T fPositive = fCoordinate > T{} ? fCoordinate : T{};
    return fPositive < T{} + fLast ? fPositive : T{} + fLast;
}

/// Value at the fraction fPart of the way from fA to fB.
template <class T>
DEVICE_FN T Between(T fA, T fB, T fPart)
{
    return (1.0f - fPart) * fA + fPart * fB;
}

/// The same, but fB does not count where it has no weight: it may be infinite.
template <class T>
DEVICE_FN T Blend(T fA, T fB, T fPart)
{
    return fPart > T{} ? Between<T>(fA, fB, fPart) : fA;
}

/// s0 p + s1
template <class T>
DEVICE_FN T Rescale(T fValue, const float* pfScale)
{
    return pfScale[0] * fValue + pfScale[1];
}

/// What the logarithm is taken of: the reference intensity over the value, which has a floor.
template <class T>
DEVICE_FN T Attenuation(T fRescaled, const float* pfScale)
{
    return pfScale[5] / (fRescaled > T{} + pfScale[3] ? fRescaled : T{} + pfScale[3]);
}

/// The upper limit of all results; NaN becomes the limit.
template <class T>
DEVICE_FN T LimitValue(T fValue, const float* pfScale)
{
    return fValue < T{} + pfScale[2] ? fValue : T{} + pfScale[2];
}

/// Makes missing pixels recognisable. fMiss: 1 or 0
template <class T>
DEVICE_FN T MarkMissing(T fValue, T fMiss)
{
    return fValue + fMiss * -1.0e30f;
}

template <class T>
DEVICE_FN T AbsValue(T fValue)
{
    if constexpr (sizeof(T) == sizeof(float))
        return fValue < 0.0f ? -fValue : fValue;
    else  // a third of the instructions
    {
        using Bits = decltype(fValue < fValue);
        return (T)((Bits)fValue & 0x7fffffff);
    }
}

/// Adds one pixel to the sums of a comparison, in the order of ECompareSum.
template <class T>
DEVICE_FN void AddPixel(T* pfSums, T fAligned, T fTransed, T fMiss)
{
    const T fWeight = 1.0f - fMiss;
    const T fA = fWeight * fAligned, fB = fWeight * fTransed;
    pfSums[0] += fWeight * AbsValue<T>(fAligned - fTransed);
    pfSums[1] += fTransed * fA;
    pfSums[2] += fWeight;
    pfSums[3] += fA;
    pfSums[4] += AbsValue<T>(fA);
    pfSums[5] += fA * fA;
    pfSums[6] += fB;
    pfSums[7] += AbsValue<T>(fB);
    pfSums[8] += fB * fB;
}
