// Lanes of a batch as SIMD registers. Included inside the namespace of an instruction set, which
// has defined TALVEN_VECTOR (floats per register), vector types of this many floats and of fewer as
// narrow batches need them, and Fma and Broadcast for each type.

// The iterations of the loop that follows do not depend on each other.
#if defined(__clang__)
#define TALVEN_INDEPENDENT _Pragma("clang loop vectorize(assume_safety)")
#else
#define TALVEN_INDEPENDENT _Pragma("GCC ivdep")
#endif

template <int W>
struct VectorOf;
#if TALVEN_VECTOR == 16
template <>
struct VectorOf<16>
{
    using Type = F16;
};
#else
template <>
struct VectorOf<1>
{
    using Type = float;
};
template <>
struct VectorOf<4>
{
    using Type = F4;
};
#endif
#if TALVEN_VECTOR == 8
template <>
struct VectorOf<8>
{
    using Type = F8;
};
#endif

/// One element of an image for all LANES rows of the batch.
template <int LANES>
struct Lanes
{
    static constexpr int iWidth = LANES < TALVEN_VECTOR ? LANES : TALVEN_VECTOR;
    static constexpr int iCount = LANES / iWidth;
    using Vector = typename VectorOf<iWidth>::Type;
    Vector av[iCount];
};

template <int LANES>
DEVICE_FN Lanes<LANES> Load(const float* pfLanes)
{
    using L = Lanes<LANES>;
    L aResult;
#pragma GCC unroll 16
    for (int k = 0; k < L::iCount; ++k)
        __builtin_memcpy(&aResult.av[k], pfLanes + k * L::iWidth, sizeof(aResult.av[k]));
    return aResult;
}

template <int LANES>
DEVICE_FN void Store(float* pfLanes, const Lanes<LANES>& rValue)
{
    using L = Lanes<LANES>;
#pragma GCC unroll 16
    for (int k = 0; k < L::iCount; ++k)
        __builtin_memcpy(pfLanes + k * L::iWidth, &rValue.av[k], sizeof(rValue.av[k]));
}

template <int LANES>
DEVICE_FN Lanes<LANES> Fill(float fValue)
{
    using L = Lanes<LANES>;
    L aResult;
#pragma GCC unroll 16
    for (int k = 0; k < L::iCount; ++k) Broadcast(fValue, aResult.av[k]);
    return aResult;
}

/// Neighbouring values, each in all lanes of a register.
template <class T, int COUNT>
DEVICE_FN void BroadcastEach(const float* pfValues, T (&ravResult)[COUNT])
{
#pragma GCC unroll 4
    for (int j = 0; j < COUNT; ++j) Broadcast(pfValues[j], ravResult[j]);
}

/// rSum += weight * value at pfLanes, one rounding where the machine can.
template <int LANES>
DEVICE_FN void AddTimes(Lanes<LANES>& rSum, typename Lanes<LANES>::Vector vWeight,
                        const float* pfLanes)
{
    using L = Lanes<LANES>;
#pragma GCC unroll 16
    for (int k = 0; k < L::iCount; ++k)
    {
        typename L::Vector vValue;
        __builtin_memcpy(&vValue, pfLanes + k * L::iWidth, sizeof(vValue));
        rSum.av[k] = Fma(vWeight, vValue, rSum.av[k]);
    }
}

template <int LANES>
DEVICE_FN void AddWeighted(Lanes<LANES>& rSum, float fWeight, const float* pfLanes)
{
    typename Lanes<LANES>::Vector vWeight;
    Broadcast(fWeight, vWeight);
    AddTimes<LANES>(rSum, vWeight, pfLanes);
}

template <int LANES>
DEVICE_FN Lanes<LANES> Add(const Lanes<LANES>& rA, const Lanes<LANES>& rB)
{
    Lanes<LANES> aResult;
#pragma GCC unroll 16
    for (int k = 0; k < Lanes<LANES>::iCount; ++k) aResult.av[k] = rA.av[k] + rB.av[k];
    return aResult;
}

// Whole registers, whose lanes stand for whatever the caller likes.
using Wide = VectorOf<TALVEN_VECTOR>::Type;
typedef int WideInt __attribute__((vector_size(sizeof(Wide))));
typedef unsigned WideUnsigned __attribute__((vector_size(sizeof(Wide))));  // may wrap around

DEVICE_FN Wide LoadWide(const float* pfValues)
{
    Wide vResult;
    __builtin_memcpy(&vResult, pfValues, sizeof(vResult));
    return vResult;
}
DEVICE_FN WideInt LoadWide(const int* piValues)
{
    WideInt vResult;
    __builtin_memcpy(&vResult, piValues, sizeof(vResult));
    return vResult;
}
DEVICE_FN void StoreWide(float* pfValues, Wide vValues)
{
    __builtin_memcpy(pfValues, &vValues, sizeof(vValues));
}
DEVICE_FN void StoreWide(int* piValues, WideInt vValues)
{
    __builtin_memcpy(piValues, &vValues, sizeof(vValues));
}
DEVICE_FN Wide Splat(float fValue)
{
    Wide vResult;
    Broadcast(fValue, vResult);
    return vResult;
}
DEVICE_FN Wide Abs(Wide vValue)
{
    return (Wide)((WideInt)vValue & 0x7fffffff);
}
/// Towards 0.
DEVICE_FN WideInt Truncate(Wide vValue)
{
    return __builtin_convertvector(vValue, WideInt);
}
DEVICE_FN Wide ToFloat(WideInt vValue)
{
    return __builtin_convertvector(vValue, Wide);
}
DEVICE_FN WideInt RoundDown(Wide vValue)
{
    const WideInt vResult = Truncate(vValue);
    return vResult + (ToFloat(vResult) > vValue);  // true is -1
}
