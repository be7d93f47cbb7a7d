#define TALVEN_VECTOR 16

#include <immintrin.h>

#include <cstddef>

#include "gpulib/Device/Host/HostKernels.h"

namespace Avx512
{
namespace
{
typedef float F16 __attribute__((vector_size(64)));
typedef int I16 __attribute__((vector_size(64)));

DEVICE_FN F16 Fma(F16 vA, F16 vB, F16 vC)
{
    return _mm512_fmadd_ps(vA, vB, vC);
}
DEVICE_FN void Broadcast(float fValue, F16& rResult)
{
    rResult = _mm512_set1_ps(fValue);
}
DEVICE_FN void BroadcastEach(const float* pfValues, F16 (&ravResult)[4])
{
    const __m512 vFour = _mm512_maskz_broadcast_f32x4(0xffff, _mm_loadu_ps(pfValues));
    ravResult[0] = _mm512_maskz_permute_ps(0xffff, vFour, 0x00);
    ravResult[1] = _mm512_maskz_permute_ps(0xffff, vFour, 0x55);
    ravResult[2] = _mm512_maskz_permute_ps(0xffff, vFour, 0xaa);
    ravResult[3] = _mm512_maskz_permute_ps(0xffff, vFour, 0xff);
}
DEVICE_FN F16 Max(F16 vA, F16 vB)
{
    return _mm512_mask_max_ps(vA, 0xffff, vA, vB);
}
DEVICE_FN bool AllTrue(I16 vMask)
{
    return _mm512_movepi32_mask((__m512i)vMask) == 0xffff;
}
DEVICE_FN F16 Gather(const float* pfImage, I16 vIndex)
{
    return _mm512_mask_i32gather_ps(_mm512_setzero_ps(), 0xffff, (__m512i)vIndex, pfImage, 4);
}

constexpr int g_iPackSlack = 16;  // entries that may be written past the last one

/// Copies the entries with a positive weight, in their order.
/// \return how many
DEVICE_FN int PackPositive(int iEntries, const int* piIn, const float* pfIn, int* piOut,
                           float* pfOut)
{
    int iPacked = 0;
    for (int i = 0; i < iEntries; i += 16)
    {
        const __m512 vWeights = _mm512_loadu_ps(pfIn + i);
        const __mmask16 uThere = _mm512_cmp_ps_mask(vWeights, _mm512_setzero_ps(), _CMP_GT_OQ);
        const __m512i vOffsets = _mm512_loadu_si512(piIn + i);
        _mm512_storeu_si512(piOut + iPacked, _mm512_maskz_compress_epi32(uThere, vOffsets));
        _mm512_storeu_ps(pfOut + iPacked, _mm512_maskz_compress_ps(uThere, vWeights));
        iPacked += __builtin_popcount(uThere);
    }
    return iPacked;
}

#include "gpulib/Device/Host/Kernels.inl"
}  // namespace

const HostKernels g_aKernels = {"avx512",    &Avx2::g_aKernels, Forward, Back,
                                BackForward, Combine,           Weight,  SumAbs,
                                Transform,   CompareSums,       Smooth};
}  // namespace Avx512
