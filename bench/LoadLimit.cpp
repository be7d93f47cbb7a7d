#include "bench/LoadLimit.h"

#include <algorithm>
#include <vector>

#include "bench/ThreadTime.h"

#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
namespace
{
constexpr int g_iTexels = 128, g_iLanes = 32;  // 16 KiB
constexpr int g_iRepeats = 2000, g_iRuns = 9;

template <int W>
struct Register
{
    typedef float Type __attribute__((vector_size(4 * W), aligned(4)));
};

/// Four chains of sums over parts of texels that the registers hold, as the kernels do.
template <int W, int PART>
[[gnu::always_inline]] inline void AddTexels(const float* pfTexels, const float* pfWeights,
                                             float* pfSums)
{
    using V = typename Register<W>::Type;
    for (int l = 0; l < g_iLanes; l += PART)
    {
        V avSums[4][PART / W] = {};
        for (int i = 0; i < g_iTexels; i += 4)
#pragma GCC unroll 4
            for (int j = 0; j < 4; ++j)
#pragma GCC unroll 4
                for (int k = 0; k < PART / W; ++k)
                    avSums[j][k] +=
                        *reinterpret_cast<const V*>(pfTexels + (i + j) * g_iLanes + l + k * W) *
                        pfWeights[i + j];
        for (int k = 0; k < PART / W; ++k)
            *reinterpret_cast<V*>(pfSums + l + k * W) =
                (avSums[0][k] + avSums[1][k]) + (avSums[2][k] + avSums[3][k]);
    }
}

[[gnu::noinline, gnu::target("avx512f,prefer-vector-width=512")]] void AddAvx512(
    const float* pfTexels, const float* pfWeights, float* pfSums)
{
    AddTexels<16, 32>(pfTexels, pfWeights, pfSums);
}
[[gnu::noinline, gnu::target("avx2,fma")]] void AddAvx2(const float* pfTexels,
                                                        const float* pfWeights, float* pfSums)
{
    AddTexels<8, 16>(pfTexels, pfWeights, pfSums);
}
[[gnu::noinline]] void AddBaseline(const float* pfTexels, const float* pfWeights, float* pfSums)
{
    AddTexels<4, 8>(pfTexels, pfWeights, pfSums);
}

template <class F>
double BestSeconds(F fCall)
{
    double dBest = 1e30;
    for (int r = 0; r < g_iRuns; ++r)
    {
        const double dStart = ThreadSeconds();
        for (int i = 0; i < g_iRepeats; ++i) fCall();
        dBest = std::min(dBest, (ThreadSeconds() - dStart) / g_iRepeats);
    }
    return dBest;
}
}  // namespace

double MeasureTexel(const std::string& rInstructionSet)
{
    std::vector<float> vfTexels(g_iTexels * g_iLanes, 1.0f), vfWeights(g_iTexels, 0.5f);
    alignas(64) float afSums[g_iLanes];
    const auto Add = rInstructionSet == "avx512" ? AddAvx512
                     : rInstructionSet == "avx2" ? AddAvx2
                                                 : AddBaseline;
    return BestSeconds([&] { Add(vfTexels.data(), vfWeights.data(), afSums); }) / g_iTexels;
}

/// A chain of multiplications, three cycles each on all these processors.
double MeasureClock()
{
    constexpr int iLinks = 1000;
    unsigned long ulValue = 3;
    const double dChain = BestSeconds(
        [&]
        {
            for (int i = 0; i < iLinks; ++i) asm volatile("imul %0, %0" : "+r"(ulValue));
        });
    return 3 * iLinks / dChain;
}
#else
double MeasureTexel(const std::string&)
{
    return 0;
}
double MeasureClock()
{
    return 0;
}
#endif
