#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "tests/softcuda/Call.h"
#include "tests/softcuda/Kernel.h"

#if defined(__has_feature)  // how clang says it
#if __has_feature(address_sanitizer)
#define __SANITIZE_ADDRESS__ 1
#elif __has_feature(thread_sanitizer)
#define __SANITIZE_THREAD__ 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(PV, BYTES)
#define ASAN_UNPOISON_MEMORY_REGION(PV, BYTES)
#endif

namespace
{
constexpr std::size_t tSharedMax = 48 * 1024;
}
alignas(256) float s_afShared[tSharedMax / sizeof(float)];  // what kernels declare

namespace SoftCuda
{
namespace
{
thread_local CDevice* t_pDevice = nullptr;
thread_local void (*t_pBarrier)() = nullptr;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr auto RunWithBarriers = RunOnThreads;
#else
constexpr auto RunWithBarriers = RunOnFibers;
#endif

void RunShared(CDevice& rDevice, const Shape& rShape, const Kernel& rKernel)
{
    static std::mutex s_aMutex;  // guards s_afShared, between devices
    std::lock_guard aLock(s_aMutex);
    ASAN_POISON_MEMORY_REGION(s_afShared, sizeof s_afShared);
    ASAN_UNPOISON_MEMORY_REGION(s_afShared, rShape.tShared);
    RunWithBarriers(rDevice, rShape, rKernel);
    ASAN_UNPOISON_MEMORY_REGION(s_afShared, sizeof s_afShared);
}

/// Without barriers: thread after thread.
void RunLoop(CDevice& rDevice, const Shape& rShape, const Kernel& rKernel)
{
    EnterKernel(&rDevice, rShape, nullptr);
    for (std::size_t b = 0; b < rShape.GetBlocks() && !rDevice.IsBroken(); ++b)
    {
        blockIdx = rShape.GetBlock(b);
        for (int t = 0; t < rShape.GetThreads(); ++t)
        {
            threadIdx = rShape.GetThread(t);
            rKernel();
        }
    }
}

cudaError_t Check(const cudaLaunchConfig_t& r)
{
    const auto [uX, uY, uZ] = uint3(r.blockDim);
    const auto [uGridX, uGridY, uGridZ] = uint3(r.gridDim);
    if (uX == 0 || uY == 0 || uZ == 0 || uX > 1024 || uY > 1024 || uZ > 64 ||
        std::size_t(uX) * uY * uZ > 1024 || uGridX == 0 || uGridY == 0 || uGridZ == 0 ||
        uGridX > 0x7FFFFFFF || uGridY > 65535 || uGridZ > 65535)
        return cudaErrorInvalidConfiguration;
    if (r.dynamicSmemBytes > tSharedMax) return cudaErrorInvalidValue;
    return r.numAttrs == 0 ? cudaSuccess : cudaErrorNotSupported;  // here
}
}  // namespace

void EnterKernel(CDevice* pDevice, const Shape& rShape, void (*pBarrier)())
{
    t_pDevice = pDevice;
    t_pBarrier = pBarrier;
    blockDim = rShape.aBlock;
    gridDim = rShape.aGrid;
}

CDevice* RunningDevice()
{
    return t_pDevice;
}

void Trap(const char* pcFormat, ...)
{
    if (t_pDevice->IsBroken()) return;  // said once
    va_list aArgs;
    va_start(aArgs, pcFormat);
    std::fputs("software CUDA device: ", stderr);
    std::vfprintf(stderr, pcFormat, aArgs);
    std::fputc('\n', stderr);
    va_end(aArgs);
    t_pDevice->Break(cudaErrorLaunchFailure);
}

void ClearShared(const Shape& rShape)
{
    std::memset(s_afShared, 0xFF, rShape.tShared);
}

void BlockBarrier()
{
    if (!t_pBarrier) return Trap("__syncthreads() in a launch without dynamic shared memory");
    t_pBarrier();
}

cudaError_t Launch(const cudaLaunchConfig_t* pConfig, Kernel aKernel)
{
    const CCall aCall("cudaLaunchKernelEx", OwnerOf(pConfig->stream));
    if (aCall.IsRefused()) return aCall.End();
    if (&*aCall != Current()) return aCall.End(cudaErrorInvalidResourceHandle);
    const cudaError_t eError = Check(*pConfig);
    if (eError != cudaSuccess) return aCall.End(eError);
    const Shape aShape{pConfig->gridDim, pConfig->blockDim, pConfig->dynamicSmemBytes};
    const auto RunLaunch = [=, pDevice = &*aCall]
    {
        ++pDevice->m_iLaunches;
        (aShape.tShared > 0 ? RunShared : RunLoop)(*pDevice, aShape, aKernel);
    };
    aCall->Enqueue(aCall->GetStream(pConfig->stream), RunLaunch);
    return aCall.End();
}
}  // namespace SoftCuda
