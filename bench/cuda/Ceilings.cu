// Loads, arithmetic and copies by themselves: what the kernels are compared with. All values are
// random, since memory and multipliers are faster on zeros, and all results are used.

#include "bench/cuda/Ceilings.h"

#include <cuda_runtime.h>

#include <bit>
#include <cmath>
#include <cstdio>

#include "bench/cuda/Timing.h"
#include "gpulib/Device/Cuda/Launch.h"

namespace
{
__global__ void __launch_bounds__(g_iThreads) FillKernel(float* pfData, unsigned int uiCount)
{
    const unsigned int i = blockIdx.x * g_iThreads + threadIdx.x;
    if (i < uiCount) pfData[i] = static_cast<float>(i * 2654435761u >> 8) * 0x1p-24f;
}

/// Every warp loads four whole lines at once, as the projectors do; a block walks through a set of
/// uiPieces pieces of 16 bytes, a power of two, from a place of its own.
__global__ void __launch_bounds__(g_iThreads)
    LoadKernel(const float4* pData, unsigned int uiPieces, int iLoads, float* pfNever)
{
    unsigned int uiAt = blockIdx.x * 2654435761u * g_iThreads + threadIdx.x;
    float fX = 0, fY = 0, fZ = 0, fW = 0;
#pragma unroll 8
    for (int i = 0; i < iLoads; ++i, uiAt += g_iThreads)
    {
        const float4 aPiece = pData[uiAt & (uiPieces - 1)];
        fX += aPiece.x;
        fY += aPiece.y;
        fZ += aPiece.z;
        fW += aPiece.w;
    }
    if (fX + fY + fZ + fW == -1.0f) *pfNever = fX;  // so that the loads are not left out
}

constexpr int g_iChains = 8;  // of a thread, so that none waits for its own

/// iSteps steps of one multiply-add in each chain, INTEGERS: and two other instructions for every
/// second one, so that half of all are integer.
template <bool INTEGERS>
__global__ void __launch_bounds__(g_iThreads)
    ArithmeticKernel(float fFactor, unsigned int uiMask, int iSteps, float* pfNever)
{
    float af[g_iChains];
    unsigned int aui[g_iChains / 2];
    for (int c = 0; c < g_iChains; ++c) af[c] = static_cast<float>(threadIdx.x + c) * 0.12345678f;
    for (int c = 0; c < g_iChains / 2; ++c) aui[c] = threadIdx.x + c;
#pragma unroll 8
    for (int i = 0; i < iSteps; ++i)
    {
#pragma unroll
        for (int c = 0; c < g_iChains; ++c) af[c] = fmaf(af[c], fFactor, 0.25f);
#pragma unroll
        for (int c = 0; c < (INTEGERS ? g_iChains / 2 : 0); ++c)
            aui[c] = (aui[c] ^ uiMask) + 0x5bd1e995u;
    }
    float fSum = 0;
    for (const float f : af) fSum += f;
    for (const unsigned int ui : aui) fSum += static_cast<float>(ui);
    if (fSum == -1.0f) *pfNever = fSum;
}

/// Per second, the best of some launches of which each does dWork.
template <class F>
double Rate(const char* pcName, int iRepeats, double dWork, F fCall)
{
    return dWork / BestSeconds(pcName, iRepeats, fCall);
}
}  // namespace

bool MeasureCeilings(const CeilingSize& rSize, Ceilings& rCeilings)
{
    CudaStream pStream;
    CCudaBuffer aFrom, aTo;
    void* pvPinned = nullptr;
    int iDevice = 0;
    cudaDeviceProp aProperties = {};
    if (!CudaOk(cudaGetDevice(&iDevice), "selected device") ||
        !CudaOk(cudaGetDeviceProperties(&aProperties, iDevice), "properties of the device") ||
        !MakeStream(pStream) || !aFrom.Reserve(rSize.tCopyBytes) ||
        !aTo.Reserve(rSize.tCopyBytes) ||
        !CudaOk(cudaMallocHost(&pvPinned, rSize.tCopyBytes), "pin %zu MiB", rSize.tCopyBytes >> 20))
        return false;
    const PinnedBlock pPinned(pvPinned);
    const cudaStream_t pQueue = pStream.get();
    const auto uiFloats = static_cast<unsigned int>(rSize.tCopyBytes / sizeof(float));
    if (!Launch("fill", pQueue, dim3(BlocksFor(uiFloats), 1, 1), 0, FillKernel, aFrom.GetFloats(),
                uiFloats))
        return false;

    const auto Copies = [&](void* pvDest, const void* pvSource, cudaMemcpyKind eKind)
    {
        const auto Copy = [=, &rSize]
        {
            const CDeviceSpan aSpan("bare copy", pQueue);
            return CudaOk(cudaMemcpyAsync(pvDest, pvSource, rSize.tCopyBytes, eKind, pQueue),
                          "copy %zu bytes", rSize.tCopyBytes);
        };
        return Rate("bare copy", rSize.iRepeats, static_cast<double>(rSize.tCopyBytes), Copy);
    };
    rCeilings.dMemory = 2 * Copies(aTo.GetFloats(), aFrom.GetFloats(), cudaMemcpyDeviceToDevice);
    rCeilings.dToHost = Copies(pvPinned, aFrom.GetFloats(), cudaMemcpyDeviceToHost);
    rCeilings.dToDevice = Copies(aTo.GetFloats(), pvPinned, cudaMemcpyHostToDevice);

    const dim3 aGrid(8 * aProperties.multiProcessorCount, 1, 1);  // 2048 threads on each
    const double dThreads = double(aGrid.x) * g_iThreads, dLoads = dThreads * rSize.iLoads;
    const auto Loads = [&](std::size_t tSet)
    {
        const auto uiPieces = static_cast<unsigned int>(std::bit_floor(tSet / sizeof(float4)));
        return Rate("load", rSize.iRepeats, dLoads * sizeof(float4),
                    [=, &rSize, &aFrom, &aTo]
                    {
                        return Launch("load", pQueue, aGrid, 0, LoadKernel,
                                      reinterpret_cast<const float4*>(aFrom.GetFloats()), uiPieces,
                                      rSize.iLoads, aTo.GetFloats());
                    });
    };
    rCeilings.tL2Bytes = static_cast<std::size_t>(aProperties.l2CacheSize);
    rCeilings.dL1 = Loads(std::min<std::size_t>(rSize.tCopyBytes, 16 << 10));
    rCeilings.dL2 = Loads(std::min(rSize.tCopyBytes, rCeilings.tL2Bytes / 4));

    const auto Arithmetic = [&](auto* pKernel, int iInstructions)
    {
        return Rate("arithmetic", rSize.iRepeats, dLoads * iInstructions,
                    [=, &rSize, &aTo]
                    {
                        return Launch("arithmetic", pQueue, aGrid, 0, pKernel, -1.0f, 0x2545F491u,
                                      rSize.iLoads, aTo.GetFloats());
                    });
    };
    rCeilings.dFloat = Arithmetic(ArithmeticKernel<false>, g_iChains);
    rCeilings.dIssue = Arithmetic(ArithmeticKernel<true>, 2 * g_iChains);
    for (const double dRate : {rCeilings.dL1, rCeilings.dL2, rCeilings.dMemory, rCeilings.dFloat,
                               rCeilings.dIssue, rCeilings.dToDevice, rCeilings.dToHost})
        if (std::isnan(dRate)) return false;
    return true;
}

std::string DescribeDevice()
{
    cudaDeviceProp aProperties = {};
    int iDevice = 0, iDriver = 0, iRuntime = 0;
    if (!CudaOk(cudaGetDevice(&iDevice), "selected device") ||
        !CudaOk(cudaGetDeviceProperties(&aProperties, iDevice), "properties of the device") ||
        !CudaOk(cudaDriverGetVersion(&iDriver), "version of the driver") ||
        !CudaOk(cudaRuntimeGetVersion(&iRuntime), "version of the runtime"))
        return "unknown device";
    char acText[512];
    std::snprintf(acText, sizeof(acText),
                  "%s, compute capability %d.%d, %.1f GiB, %d multiprocessors, driver for CUDA "
                  "%d.%d, runtime %d.%d",
                  aProperties.name, aProperties.major, aProperties.minor,
                  static_cast<double>(aProperties.totalGlobalMem) / (1 << 30),
                  aProperties.multiProcessorCount, iDriver / 1000, iDriver % 1000 / 10,
                  iRuntime / 1000, iRuntime % 1000 / 10);
    return acText;
}
