#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <random>

#include "tests/softcuda/Call.h"
#include "tests/softcuda/Fiber.h"

#if !defined(__SANITIZE_ADDRESS__)
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
using Kernel = std::function<void()>;

struct Shape
{
    dim3 aGrid, aBlock;
    std::size_t tShared;
    int GetThreads() const { return static_cast<int>(aBlock.x * aBlock.y * aBlock.z); }
    std::size_t GetBlocks() const { return std::size_t(aGrid.x) * aGrid.y * aGrid.z; }
};

uint3 Unravel(std::size_t t, const dim3& r)
{
    return {unsigned(t % r.x), unsigned(t / r.x % r.y), unsigned(t / r.x / r.y)};
}

thread_local CDevice* t_pDevice = nullptr;

/// A block whose threads meet at barriers.
struct Block
{
    Context aOutside;  // of the block
    const Kernel* pKernel = nullptr;
    std::vector<Fiber*> vpFibers;
    std::minstd_rand aRandom;   // the same in every launch
    char cRound = 0, cMet = 0;  // marks of order: begin of a round, end of one
};
thread_local Block* t_pBlock = nullptr;
thread_local Fiber* t_pRunning = nullptr;

/// What all fibers begin with. It does not return: its state is made anew for every block.
UNSEEN void FiberMain()
{
    Block& rBlock = *t_pBlock;
    Fiber& rThis = *t_pRunning;
    Arrive(rBlock.aOutside);
    Observe(&rBlock.cRound);
    (*rBlock.pKernel)();
    rThis.bDone = true;
    Publish(&rBlock.cMet);
    Switch(rThis, rBlock.aOutside, true);
}

UNSEEN void Prepare(Fiber& rFiber)
{
    getcontext(&rFiber.aState);
    rFiber.aState.uc_stack.ss_sp = rFiber.pcStack.get();
    rFiber.aState.uc_stack.ss_size = rFiber.tStack;
    makecontext(&rFiber.aState, FiberMain, 0);
    rFiber.bDone = false;
}

/// Runs every thread to its next barrier or its end, in another order each time, so that a missing
/// barrier is likely a wrong result, and certainly a race to ThreadSanitizer.
UNSEEN void RunRound(Block& rBlock)
{
    Publish(&rBlock.cRound);
    for (Fiber* pFiber : rBlock.vpFibers)
    {
        t_pRunning = pFiber;
        t_pThread = &pFiber->aThread;
        Switch(rBlock.aOutside, *pFiber);
    }
    t_pRunning = nullptr;
    Observe(&rBlock.cMet);
    std::ranges::shuffle(rBlock.vpFibers, rBlock.aRandom);
}

void RunBlocks(CDevice& rDevice, const Shape& rShape, const Kernel& rKernel)
{
    static std::vector<std::unique_ptr<Fiber>> s_vpFibers;  // under the mutex of s_afShared
    Block aBlock;
    aBlock.pKernel = &rKernel;
    t_pBlock = &aBlock;
    for (int t = 0; t < rShape.GetThreads(); ++t)
    {
        if (s_vpFibers.size() == std::size_t(t)) s_vpFibers.push_back(std::make_unique<Fiber>());
        s_vpFibers[t]->aThread = Unravel(t, rShape.aBlock);
        aBlock.vpFibers.push_back(s_vpFibers[t].get());
    }
    for (std::size_t b = 0; b < rShape.GetBlocks() && !rDevice.IsBroken(); ++b)
    {
        blockIdx = Unravel(b, rShape.aGrid);
        std::memset(s_afShared, 0xFF, rShape.tShared);  // NaNs
        for (Fiber* pFiber : aBlock.vpFibers) Prepare(*pFiber);
        const auto IsDone = [](const Fiber* pFiber) { return pFiber->bDone; };
        do RunRound(aBlock);
        while (std::ranges::none_of(aBlock.vpFibers, IsDone));
        if (!std::ranges::all_of(aBlock.vpFibers, IsDone))
            Trap("threads of a block met different barriers");
    }
}

/// Launches with shared memory have barriers.
void RunShared(CDevice& rDevice, const Shape& rShape, const Kernel& rKernel)
{
    static std::mutex s_aMutex;  // guards s_afShared, between devices
    std::lock_guard aLock(s_aMutex);
    ASAN_POISON_MEMORY_REGION(s_afShared, sizeof s_afShared);
    ASAN_UNPOISON_MEMORY_REGION(s_afShared, rShape.tShared);
    RunBlocks(rDevice, rShape, rKernel);
    ASAN_UNPOISON_MEMORY_REGION(s_afShared, sizeof s_afShared);
}

/// Without: thread after thread.
void RunLoop(CDevice& rDevice, const Shape& rShape, const Kernel& rKernel)
{
    uint3 aThread;
    t_pThread = &aThread;
    for (std::size_t b = 0; b < rShape.GetBlocks() && !rDevice.IsBroken(); ++b)
    {
        blockIdx = Unravel(b, rShape.aGrid);
        for (int t = 0; t < rShape.GetThreads(); ++t)
        {
            aThread = Unravel(t, rShape.aBlock);
            rKernel();
        }
    }
}

cudaError_t Check(const cudaLaunchConfig_t& r)
{
    const dim3 &b = r.blockDim, &g = r.gridDim;
    if (b.x == 0 || b.y == 0 || b.z == 0 || b.z > 64 || std::size_t(b.x) * b.y * b.z > 1024 ||
        g.x == 0 || g.y == 0 || g.z == 0 || g.x > 0x7FFFFFFF || g.y > 65535 || g.z > 65535)
        return cudaErrorInvalidConfiguration;
    if (r.dynamicSmemBytes > tSharedMax) return cudaErrorInvalidValue;
    return r.numAttrs == 0 ? cudaSuccess : cudaErrorNotSupported;  // here
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

UNSEEN void BlockBarrier()
{
    if (!t_pRunning) return Trap("__syncthreads() in a launch without dynamic shared memory");
    Fiber& rThis = *t_pRunning;
    Block& rBlock = *t_pBlock;
    Publish(&rBlock.cMet);
    Switch(rThis, rBlock.aOutside);
    Observe(&rBlock.cRound);
}

cudaError_t Launch(const cudaLaunchConfig_t* pConfig, Kernel aKernel)
{
    const auto Work = [=](CDevice& rDevice)
    {
        if (&rDevice != Current()) return cudaErrorInvalidResourceHandle;
        const cudaError_t eError = Check(*pConfig);
        if (eError != cudaSuccess) return eError;
        const Shape aShape{pConfig->gridDim, pConfig->blockDim, pConfig->dynamicSmemBytes};
        const auto RunLaunch = [=, &rDevice]
        {
            ++rDevice.m_iLaunches;
            t_pDevice = &rDevice;
            (aShape.tShared > 0 ? RunShared : RunLoop)(rDevice, aShape, aKernel);
        };
        rDevice.Enqueue(rDevice.GetStream(pConfig->stream), RunLaunch);
        return cudaSuccess;
    };
    return Call("cudaLaunchKernelEx", OwnerOf(pConfig->stream), Work);
}
}  // namespace SoftCuda
