#define TALVEN_VECTOR 8

#include <immintrin.h>

#include <cstddef>

#include "gpulib/Device/Host/HostKernels.h"

namespace Avx2
{
namespace
{
typedef float F4 __attribute__((vector_size(16)));
typedef float F8 __attribute__((vector_size(32)));
typedef int I8 __attribute__((vector_size(32)));

DEVICE_FN float Fma(float fA, float fB, float fC)
{
    return __builtin_fmaf(fA, fB, fC);
}
DEVICE_FN F4 Fma(F4 vA, F4 vB, F4 vC)
{
    return _mm_fmadd_ps(vA, vB, vC);
}
DEVICE_FN F8 Fma(F8 vA, F8 vB, F8 vC)
{
    return _mm256_fmadd_ps(vA, vB, vC);
}
DEVICE_FN void Broadcast(float fValue, float& rResult)
{
    rResult = fValue;
}
DEVICE_FN void Broadcast(float fValue, F4& rResult)
{
    rResult = _mm_set1_ps(fValue);
}
DEVICE_FN void Broadcast(float fValue, F8& rResult)
{
    rResult = _mm256_set1_ps(fValue);
}
DEVICE_FN bool AllTrue(I8 vMask)
{
    return _mm256_movemask_ps(_mm256_castsi256_ps((__m256i)vMask)) == 0xff;
}
DEVICE_FN F8 Gather(const float* pfImage, I8 vIndex)
{
    return _mm256_i32gather_ps(pfImage, (__m256i)vIndex, 4);
}

#include "gpulib/Device/Host/Kernels.inl"
}  // namespace

const HostKernels g_aKernels = {"avx2", nullptr, Forward,   Back,        Combine,
                                Weight, SumAbs,  Transform, CompareSums, Smooth};
}  // namespace Avx2
