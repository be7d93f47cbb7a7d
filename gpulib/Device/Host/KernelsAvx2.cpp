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
/// Four neighbouring values, each in all lanes of a register. Permutes leave the load ports free.
DEVICE_FN void BroadcastEach(const float* pfValues, F8 (&ravResult)[4])
{
    const __m256 vFour = _mm256_broadcast_ps(reinterpret_cast<const __m128*>(pfValues));
    ravResult[0] = _mm256_permute_ps(vFour, 0x00);
    ravResult[1] = _mm256_permute_ps(vFour, 0x55);
    ravResult[2] = _mm256_permute_ps(vFour, 0xaa);
    ravResult[3] = _mm256_permute_ps(vFour, 0xff);
}
DEVICE_FN F8 Max(F8 vA, F8 vB)
{
    return _mm256_max_ps(vA, vB);
}
DEVICE_FN bool AllTrue(I8 vMask)
{
    return _mm256_movemask_ps(_mm256_castsi256_ps((__m256i)vMask)) == 0xff;
}
DEVICE_FN F8 Gather(const float* pfImage, I8 vIndex)
{
    return _mm256_i32gather_ps(pfImage, (__m256i)vIndex, 4);
}

constexpr int g_iPackSlack = 8;  // entries that may be written past the last one

/// For each mask of eight: the numbers of the entries that are there, in their order.
struct PackTable
{
    unsigned char aucOrder[256][8];
};
constexpr PackTable MakePackTable()
{
    PackTable aTable = {};
    for (int m = 0; m < 256; ++m)
        for (int i = 0, n = 0; i < 8; ++i)
            if (m >> i & 1) aTable.aucOrder[m][n++] = static_cast<unsigned char>(i);
    return aTable;
}
constexpr PackTable g_aPackTable = MakePackTable();

/// Copies the entries with a positive weight, in their order.
/// \return how many
DEVICE_FN int PackPositive(int iEntries, const int* piIn, const float* pfIn, int* piOut,
                           float* pfOut)
{
    int iPacked = 0;
    for (int i = 0; i < iEntries; i += 8)
    {
        const __m256 vWeights = _mm256_loadu_ps(pfIn + i);
        const __m256i vOffsets = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(piIn + i));
        const int iThere =
            _mm256_movemask_ps(_mm256_cmp_ps(vWeights, _mm256_setzero_ps(), _CMP_GT_OQ));
        const __m256i vOrder = _mm256_cvtepu8_epi32(
            _mm_loadl_epi64(reinterpret_cast<const __m128i*>(g_aPackTable.aucOrder[iThere])));
        _mm256_storeu_ps(pfOut + iPacked, _mm256_permutevar8x32_ps(vWeights, vOrder));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(piOut + iPacked),
                            _mm256_permutevar8x32_epi32(vOffsets, vOrder));
        iPacked += __builtin_popcount(iThere);
    }
    return iPacked;
}

#include "gpulib/Device/Host/Kernels.inl"
}  // namespace

const HostKernels g_aKernels = {"avx2", nullptr, Forward,   Back,        BackForward, Combine,
                                Weight, SumAbs,  Transform, CompareSums, Smooth};
}  // namespace Avx2
