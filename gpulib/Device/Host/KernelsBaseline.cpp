#define TALVEN_VECTOR 4

#include <cstddef>

#include "gpulib/Device/Host/HostKernels.h"
#if defined(__ARM_NEON)
#include <arm_neon.h>
#elif defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Baseline
{
namespace
{
typedef float F4 __attribute__((vector_size(16)));
typedef int I4 __attribute__((vector_size(16)));

DEVICE_FN float Fma(float fA, float fB, float fC)
{
#if defined(__ARM_NEON)
    return __builtin_fmaf(fA, fB, fC);  // as the vector: the same bits for any number of lanes
#else
    return fA * fB + fC;
#endif
}
DEVICE_FN F4 Fma(F4 vA, F4 vB, F4 vC)
{
#if defined(__ARM_NEON)
    return vfmaq_f32(vC, vA, vB);
#else
    return vA * vB + vC;
#endif
}
DEVICE_FN void Broadcast(float fValue, float& rResult)
{
    rResult = fValue;
}
DEVICE_FN void Broadcast(float fValue, F4& rResult)
{
    rResult = F4{fValue, fValue, fValue, fValue};
}
DEVICE_FN F4 Max(F4 vA, F4 vB)
{
#if defined(__SSE2__)
    return _mm_max_ps(vA, vB);
#else
    return vA > vB ? vA : vB;
#endif
}
DEVICE_FN bool AllTrue(I4 vMask)
{
#if defined(__SSE2__)
    return _mm_movemask_epi8((__m128i)vMask) == 0xffff;
#else
    return (vMask[0] & vMask[1] & vMask[2] & vMask[3]) != 0;
#endif
}
DEVICE_FN F4 Gather(const float* pfImage, I4 vIndex)
{
    return F4{pfImage[vIndex[0]], pfImage[vIndex[1]], pfImage[vIndex[2]], pfImage[vIndex[3]]};
}

constexpr int g_iPackSlack = 4;  // entries that may be written past the last one

/// Copies the entries with a positive weight, in their order.
/// \return how many
DEVICE_FN int PackPositive(int iEntries, const int* piIn, const float* pfIn, int* piOut,
                           float* pfOut)
{
    int iPacked = 0;
    for (int i = 0; i < iEntries; ++i)
    {
        piOut[iPacked] = piIn[i];
        pfOut[iPacked] = pfIn[i];
        iPacked += pfIn[i] > 0.0f;
    }
    return iPacked;
}

#include "gpulib/Device/Host/Kernels.inl"
}  // namespace

const HostKernels g_aKernels = {"baseline", nullptr, Forward,   Back,        BackForward, Combine,
                                Weight,     SumAbs,  Transform, CompareSums, Smooth};
}  // namespace Baseline
