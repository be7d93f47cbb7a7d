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
DEVICE_FN bool AllTrue(I16 vMask)
{
    return _mm512_movepi32_mask((__m512i)vMask) == 0xffff;
}
DEVICE_FN F16 Gather(const float* pfImage, I16 vIndex)
{
    return _mm512_mask_i32gather_ps(_mm512_setzero_ps(), 0xffff, (__m512i)vIndex, pfImage, 4);
}

#include "gpulib/Device/Host/Kernels.inl"
}  // namespace

const HostKernels g_aKernels = {"avx512", &Avx2::g_aKernels, Forward,     Back,  Combine, Weight,
                                SumAbs,   Transform,         CompareSums, Smooth};
}  // namespace Avx512
