#include <algorithm>
#include <barrier>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <optional>
#include <thread>

#include "tests/softcuda/Call.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(PV, BYTES)
#define ASAN_UNPOISON_MEMORY_REGION(PV, BYTES)
#endif

// Launches.

namespace
{
constexpr std::size_t tSharedMax = 48 * 1024;
}
alignas(256) float s_afShared[tSharedMax / sizeof(float)];  // what kernels declare

namespace SoftCuda
{
namespace
{
struct Shape
{
    dim3 aGrid, aBlock;
    std::size_t tShared;
    int GetThreads() const { return aBlock.x * aBlock.y * aBlock.z; }
    std::size_t GetBlocks() const { return std::size_t(aGrid.x) * aGrid.y * aGrid.z; }
};

/// What stands behind __syncthreads() for one block: threads that returned are not waited for, as
/// on the device, but that the threads of a block met different barriers is an error.
struct Block
{
    std::barrier<> aBarrier;
    std::atomic<int> iMet = -1;  // barriers that the first thread to return met
    std::atomic<bool> bDiverged = false;
    explicit Block(int iThreads) : aBarrier(iThreads) {}
    void Leave(int iMetHere)
    {
        int iFirst = -1;
        if (!iMet.compare_exchange_strong(iFirst, iMetHere) && iFirst != iMetHere) bDiverged = true;
        aBarrier.arrive_and_drop();
    }
};

thread_local CDevice* t_pDevice = nullptr;
thread_local Block* t_pBlock = nullptr;
thread_local int t_iMet = 0;  // barriers of this block

uint3 Unravel(std::size_t t, const dim3& rSize)
{
    return {unsigned(t % rSize.x), unsigned(t / rSize.x % rSize.y),
            unsigned(t / rSize.x / rSize.y)};
}

void Enter(CDevice* pDevice, const Shape& rShape)
{
    t_pDevice = pDevice;
    blockDim = rShape.aBlock;
    gridDim = rShape.aGrid;
}

/// Without barriers: thread after thread.
void RunLoop(CDevice& rDevice, const Shape& rShape, const std::function<void()>& rKernel)
{
    Enter(&rDevice, rShape);
    for (std::size_t b = 0; b < rShape.GetBlocks() && !rDevice.IsBroken(); ++b)
    {
        blockIdx = Unravel(b, rShape.aGrid);
        for (int t = 0; t < rShape.GetThreads(); ++t)
        {
            threadIdx = Unravel(t, rShape.aBlock);
            rKernel();
        }
    }
    t_pDevice = nullptr;
}

/// With barriers: one thread of the machine for each CUDA thread, block after block. The machine's
/// threads share nothing but s_afShared, so that ThreadSanitizer sees a missing __syncthreads().
void RunThreads(CDevice& rDevice, const Shape& rShape, const std::function<void()>& rKernel)
{
    static std::mutex s_aMutex;  // guards s_afShared, between devices
    std::lock_guard aLock(s_aMutex);
    const int iThreads = rShape.GetThreads();
    std::optional<Block> oBlock;
    const auto NewBlock = [&]() noexcept
    {
        if (oBlock && oBlock->bDiverged) Trap("threads of a block met different barriers");
        std::memset(s_afShared, 0xFF, rShape.tShared);
        oBlock.emplace(iThreads);
    };
    std::barrier aBetween(iThreads, NewBlock);
    const auto Thread = [&](int t)
    {
        Enter(&rDevice, rShape);
        threadIdx = Unravel(t, rShape.aBlock);
        for (std::size_t b = 0; b < rShape.GetBlocks(); ++b)
        {
            aBetween.arrive_and_wait();
            blockIdx = Unravel(b, rShape.aGrid);
            t_pBlock = &*oBlock;
            t_iMet = 0;
            if (!rDevice.IsBroken()) rKernel();
            oBlock->Leave(t_iMet);
        }
        aBetween.arrive_and_wait();
    };

    ASAN_POISON_MEMORY_REGION(s_afShared, sizeof s_afShared);
    ASAN_UNPOISON_MEMORY_REGION(s_afShared, rShape.tShared);
    std::vector<std::jthread> vThreads;
    for (int t = 0; t < iThreads; ++t) vThreads.emplace_back(Thread, t);
    vThreads.clear();
    ASAN_UNPOISON_MEMORY_REGION(s_afShared, sizeof s_afShared);
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
    return r.numAttrs == 0 ? cudaSuccess : cudaErrorNotSupported;  // by this runtime
}
}  // namespace

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

void BlockBarrier()
{
    if (!t_pBlock) return Trap("__syncthreads() in a launch without dynamic shared memory");
    ++t_iMet;
    t_pBlock->aBarrier.arrive_and_wait();
}

cudaError_t Launch(const cudaLaunchConfig_t* pConfig, std::function<void()> Kernel)
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
        (aShape.tShared > 0 ? RunThreads : RunLoop)(*pDevice, aShape, Kernel);
    };
    aCall->Enqueue(aCall->GetStream(pConfig->stream), RunLaunch);
    return aCall.End();
}
}  // namespace SoftCuda
