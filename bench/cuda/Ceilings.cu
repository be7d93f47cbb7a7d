// Reads and copies with next to no arithmetic: what the kernels are compared with.

#include <cuda_runtime.h>

#include <cstdio>
#include <limits>

#include "bench/cuda/Ceilings.h"
#include "bench/cuda/Timing.h"
#include "gpulib/Device/Cuda/Launch.h"
#include "gpulib/Device/Cuda/Texels.h"
#include "gpulib/Device/DeviceArray2D.h"

namespace
{
/// One column of one row of the batch; blockIdx.y only repeats it.
__global__ void __launch_bounds__(g_iThreads)
    FetchKernel(const __grid_constant__ DeviceImage aImage, float* pfNever)
{
    const int iX = blockIdx.x * g_iThreads + threadIdx.x;
    if (iX >= aImage.iWidth) return;
    const float fU = static_cast<float>(iX) + 0.75f;
    float fV = 0.75f, fSum = 0.0f;
#pragma unroll 8
    for (int i = 0; i < aImage.iHeight; ++i)
    {
        fSum += tex2DLayered<float>(aImage.uiTexture, fU, fV, blockIdx.z);
        fV += 1.0f;
    }
    if (fSum == -1.0f) *pfNever = fSum;  // so that the reads are not left out
}

/// Bytes per second of the best of some copies.
double CopyRate(void* pvDest, const void* pvSource, std::size_t tBytes, cudaMemcpyKind eKind,
                int iRepeats, cudaStream_t pStream)
{
    const auto Copy = [=]
    {
        const CDeviceSpan aSpan("bare copy", pStream);
        return CudaOk(cudaMemcpyAsync(pvDest, pvSource, tBytes, eKind, pStream), "copy %zu bytes",
                      tBytes);
    };
    return static_cast<double>(tBytes) / BestSeconds("bare copy", iRepeats, Copy);
}
}  // namespace

bool MeasureCopies(std::size_t tBytes, int iRepeats, Ceilings& rCeilings)
{
    CudaStream pStream;
    CCudaBuffer aFrom, aTo;
    void* pvPinned = nullptr;
    if (!MakeStream(pStream) || !aFrom.Reserve(tBytes) || !aTo.Reserve(tBytes) ||
        !CudaOk(cudaMallocHost(&pvPinned, tBytes), "pin %zu MiB", tBytes >> 20))
        return false;
    const PinnedBlock pPinned(pvPinned);
    const auto Rate = [&](void* pvDest, const void* pvSource, cudaMemcpyKind eKind)
    { return CopyRate(pvDest, pvSource, tBytes, eKind, iRepeats, pStream.get()); };
    rCeilings.dToDevice = Rate(aFrom.GetFloats(), pvPinned, cudaMemcpyHostToDevice);
    rCeilings.dCopy = 2 * Rate(aTo.GetFloats(), aFrom.GetFloats(), cudaMemcpyDeviceToDevice);
    rCeilings.dToHost = Rate(pvPinned, aTo.GetFloats(), cudaMemcpyDeviceToHost);
    return rCeilings.dToHost > 0 && rCeilings.dCopy > 0 && rCeilings.dToDevice > 0;  // no NaN
}

double MeasureFetches(int iWidth, int iHeight, int iTilts, int iLanes, int iRepeats)
{
    CudaStream pStream;
    CCudaBuffer aNever;
    CDeviceArray2D aImage;
    aImage.SetLanes(iLanes);
    if (!MakeStream(pStream) || !aNever.Reserve(sizeof(float)) || !aImage.Create(iWidth, iHeight) ||
        !CudaOk(cudaDeviceSynchronize(), "clear"))  // which is queued on another stream
        return std::numeric_limits<double>::quiet_NaN();
    const dim3 aGrid(BlocksFor(iWidth), iTilts, iLanes);
    const double dSeconds =
        BestSeconds("fetch", iRepeats,
                    [&]
                    {
                        return Launch("fetch", pStream.get(), aGrid, 0, FetchKernel,
                                      aImage.GetImage(), aNever.GetFloats());
                    });
    return static_cast<double>(iWidth) * iHeight * iTilts * iLanes / dSeconds;
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
