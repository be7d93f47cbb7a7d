#include <ucontext.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "tests/softcuda/Runtime.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#include <sanitizer/common_interface_defs.h>
#else
#define ASAN_POISON_MEMORY_REGION(PV, BYTES)
#define ASAN_UNPOISON_MEMORY_REGION(PV, BYTES)
#endif
#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#else
#define __tsan_acquire(PV)
#define __tsan_release(PV)
#endif

// Launches: the blocks of a grid one after the other.

/// For code that switches: what it touches is not shared between threads of the program.
#define UNSEEN [[gnu::no_sanitize("thread"), gnu::noinline]]

namespace
{
constexpr std::size_t g_tSharedMax = 48 * 1024, g_tStack = 128 * 1024;
}
alignas(256) float s_afShared[g_tSharedMax / sizeof(float)];  // what kernels declare

namespace SoftCuda
{
namespace
{
/// Something that a thread of the machine can run on and leave in the middle, and that sanitizers
/// know as such. To ThreadSanitizer it is a thread, and switching orders nothing by itself: only
/// the marks of a Block do.
struct Context
{
    ucontext_t aState{};
    const void* pvStack = nullptr;
    std::size_t tStack = 0;
    void* pvFakeStack = nullptr;  // AddressSanitizer's
    void* pvThread = nullptr;     // ThreadSanitizer's
};

/// One CUDA thread of a block with barriers.
struct Fiber : Context
{
    Fiber()
    {
        pvStack = pcStack.get();
        tStack = g_tStack;
#if defined(__SANITIZE_THREAD__)
        pvThread = __tsan_create_fiber(0);
#endif
    }
    std::unique_ptr<char[]> pcStack = std::make_unique_for_overwrite<char[]>(g_tStack);
    uint3 aThread{};
    bool bDone = false;
};

/// Leaves rFrom, which this thread runs on, for rTo. \param bEnd  nobody comes back to rFrom
UNSEEN void Switch(Context& rFrom, Context& rTo, [[maybe_unused]] bool bEnd = false)
{
#if defined(__SANITIZE_ADDRESS__)
    __sanitizer_start_switch_fiber(bEnd ? nullptr : &rFrom.pvFakeStack, rTo.pvStack, rTo.tStack);
#elif defined(__SANITIZE_THREAD__)
    if (!rFrom.pvThread) rFrom.pvThread = __tsan_get_current_fiber();
    __tsan_switch_to_fiber(rTo.pvThread, __tsan_switch_to_fiber_no_sync);
#endif
    swapcontext(&rFrom.aState, &rTo.aState);
#if defined(__SANITIZE_ADDRESS__)
    __sanitizer_finish_switch_fiber(rFrom.pvFakeStack, nullptr, nullptr);
#endif
}

uint3 Unravel(std::size_t t, const dim3& r)
{
    return {unsigned(t % r.x), unsigned(t / r.x % r.y), unsigned(t / r.x / r.y)};
}

std::size_t Count(const dim3& r)
{
    return std::size_t(r.x) * r.y * r.z;
}

/// A launch whose threads meet at barriers.
struct Block
{
    Context aOutside;
    const std::function<void()>* pKernel = nullptr;
    std::vector<Fiber*> vpFibers;
    Fiber* pRunning = nullptr;
    std::minstd_rand aRandom;   // the same in every launch
    char cRound = 0, cMet = 0;  // marks of order: begin of a round, end of one (ThreadSanitizer's)
};
thread_local Block* t_pBlock = nullptr;  // null: no barriers

/// What all fibers begin with. It does not return: its state is made anew for every block.
UNSEEN void FiberMain()
{
    Block& rBlock = *t_pBlock;
    Fiber& rThis = *rBlock.pRunning;
#if defined(__SANITIZE_ADDRESS__)
    __sanitizer_finish_switch_fiber(nullptr, &rBlock.aOutside.pvStack, &rBlock.aOutside.tStack);
#endif
    __tsan_acquire(&rBlock.cRound);
    (*rBlock.pKernel)();
    rThis.bDone = true;
    __tsan_release(&rBlock.cMet);
    Switch(rThis, rBlock.aOutside, true);
}

/// Runs every thread to its next barrier or its end, in another order each time, so that a missing
/// barrier is likely a wrong result, and certainly a race to ThreadSanitizer.
UNSEEN void RunRound(Block& rBlock)
{
    __tsan_release(&rBlock.cRound);
    for (Fiber* pFiber : rBlock.vpFibers)
    {
        rBlock.pRunning = pFiber;
        t_pThread = &pFiber->aThread;
        Switch(rBlock.aOutside, *pFiber);
    }
    __tsan_acquire(&rBlock.cMet);
    std::ranges::shuffle(rBlock.vpFibers, rBlock.aRandom);
}

/// Runs the threads of one block one after the other, or in turns between barriers.
void RunBlock(const cudaLaunchConfig_t& rConfig, const std::function<void()>& fKernel)
{
    if (!t_pBlock)
    {
        uint3 aThread;
        t_pThread = &aThread;
        for (std::size_t t = 0; t < Count(rConfig.blockDim); ++t)
        {
            aThread = Unravel(t, rConfig.blockDim);
            fKernel();
        }
        return;
    }
    std::memset(s_afShared, 0xFF, rConfig.dynamicSmemBytes);  // NaNs
    for (Fiber* pFiber : t_pBlock->vpFibers)
    {
        getcontext(&pFiber->aState);
        pFiber->aState.uc_stack.ss_sp = pFiber->pcStack.get();
        pFiber->aState.uc_stack.ss_size = pFiber->tStack;
        makecontext(&pFiber->aState, FiberMain, 0);
        pFiber->bDone = false;
    }
    const auto IsDone = [](const Fiber* pFiber) { return pFiber->bDone; };
    do RunRound(*t_pBlock);
    while (std::ranges::none_of(t_pBlock->vpFibers, IsDone));
    if (!std::ranges::all_of(t_pBlock->vpFibers, IsDone))
        Trap("threads of a block met different barriers\n");
}

/// Launches with shared memory have barriers.
void RunGrid(Device& rDevice, const cudaLaunchConfig_t& rConfig,
             const std::function<void()>& fKernel)
{
    static std::mutex s_aMutex;  // guards what is static here and s_afShared, between devices
    static std::vector<std::unique_ptr<Fiber>> s_vpFibers;
    std::unique_lock aLock(s_aMutex, std::defer_lock);
    Block aBlock;
    ++rDevice.iLaunches;
    if (rConfig.dynamicSmemBytes > 0)
    {
        aLock.lock();
        ASAN_POISON_MEMORY_REGION(s_afShared, sizeof s_afShared);
        ASAN_UNPOISON_MEMORY_REGION(s_afShared, rConfig.dynamicSmemBytes);
        t_pBlock = &aBlock;
        aBlock.pKernel = &fKernel;
        for (std::size_t t = 0; t < Count(rConfig.blockDim); ++t)
        {
            if (s_vpFibers.size() == t) s_vpFibers.push_back(std::make_unique<Fiber>());
            s_vpFibers[t]->aThread = Unravel(t, rConfig.blockDim);
            aBlock.vpFibers.push_back(s_vpFibers[t].get());
        }
    }
    for (std::size_t b = 0; b < Count(rConfig.gridDim) && rDevice.eSticky == cudaSuccess; ++b)
    {
        blockIdx = Unravel(b, rConfig.gridDim);
        RunBlock(rConfig, fKernel);
    }
    t_pBlock = nullptr;
}
}  // namespace

UNSEEN void BlockBarrier()
{
    if (!t_pBlock) return Trap("__syncthreads() in a launch without dynamic shared memory\n");
    Block& rBlock = *t_pBlock;
    Fiber& rThis = *rBlock.pRunning;
    __tsan_release(&rBlock.cMet);
    Switch(rThis, rBlock.aOutside);
    __tsan_acquire(&rBlock.cRound);
}

cudaError_t Launch(const cudaLaunchConfig_t& rConfig, std::function<void()> fKernel)
{
    const auto Work = [=](Device& rDevice)
    {
        const dim3 &b = rConfig.blockDim, &g = rConfig.gridDim;
        if (Count(b) == 0 || b.z > 64 || Count(b) > 1024 || Count(g) == 0 || g.x > 0x7FFFFFFF ||
            g.y > 65535 || g.z > 65535 || rConfig.dynamicSmemBytes > g_tSharedMax)
            return cudaErrorInvalidConfiguration;
        rConfig.stream->aQueue.push_back([=, &rDevice] { RunGrid(rDevice, rConfig, fKernel); });
        return cudaSuccess;
    };
    return CallWith(EKind::eStream, rConfig.stream, "cudaLaunchKernelEx", Work);
}
}  // namespace SoftCuda
