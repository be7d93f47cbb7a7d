#include <ucontext.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <mutex>
#include <random>
#include <span>

#include "tests/softcuda/Runtime.h"

#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#else
#define __tsan_create_fiber(FLAGS) nullptr
#define __tsan_get_current_fiber() nullptr
#define __tsan_switch_to_fiber(PV, FLAGS)
#endif

// Launches: the blocks of a grid one after the other.

constexpr std::size_t g_tSharedMax = 48 * 1024, g_tStack = 128 * 1024;
float s_afShared[g_tSharedMax / sizeof(float)];  // what kernels declare

namespace SoftCuda
{
namespace
{
/// One CUDA thread of the blocks of launches with barriers.
struct Fiber
{
    Fiber()
    {
        getcontext(&aState);
        aState.uc_stack.ss_sp = pcStack.get();
        aState.uc_stack.ss_size = g_tStack;
        makecontext(&aState, RunBlocks, 0);
    }
    static void RunBlocks();
    ucontext_t aState{};
    std::unique_ptr<char[]> pcStack = std::make_unique_for_overwrite<char[]>(g_tStack);
    void* pvSanitizer = __tsan_create_fiber(0);
    uint3 aThread;
};

std::mutex g_aMutex;  // a launch with barriers has all below and s_afShared for itself
std::vector<std::unique_ptr<Fiber>> g_vpFibers;
Fiber* g_pRunning = nullptr;
std::size_t g_tDone = 0;  // threads that have left the kernel
ucontext_t g_aOutside;
void* g_pvOutside = nullptr;  // ThreadSanitizer's
const std::function<void()>* g_pKernel = nullptr;

void Fiber::RunBlocks()
{
    for (;;)
    {
        (*g_pKernel)();
        ++g_tDone;
        __syncthreads();
    }
}

uint3 Unravel(std::size_t t, const dim3& r)
{
    return {unsigned(t % r.x), unsigned(t / r.x % r.y), unsigned(t / r.x / r.y)};
}

std::size_t Count(const dim3& r)
{
    return std::size_t(r.x) * r.y * r.z;
}

/// Runs the threads of a block in turns between barriers, in another order each time, so that a
/// missing barrier is a wrong result.
void RunBlockWithBarriers(const cudaLaunchConfig_t& rConfig)
{
    static std::minstd_rand s_aRandom;
    while (g_vpFibers.size() < Count(rConfig.blockDim))
        g_vpFibers.push_back(std::make_unique<Fiber>());
    const std::span vpFibers(g_vpFibers.data(), Count(rConfig.blockDim));
    for (std::size_t t = 0; t < vpFibers.size(); ++t)
        vpFibers[t]->aThread = Unravel(t, rConfig.blockDim);
    std::memset(s_afShared, 0xFF, sizeof s_afShared);  // NaNs
    g_pvOutside = __tsan_get_current_fiber();
    for (g_tDone = 0; g_tDone == 0;)
    {
        std::ranges::shuffle(vpFibers, s_aRandom);
        for (const auto& pFiber : vpFibers)
        {
            threadIdx = pFiber->aThread;
            g_pRunning = pFiber.get();
            __tsan_switch_to_fiber(pFiber->pvSanitizer, 0);
            swapcontext(&g_aOutside, &pFiber->aState);
        }
    }
    if (g_tDone != vpFibers.size()) Trap("threads of a block met different barriers");
    if (!std::isnan(s_afShared[rConfig.dynamicSmemBytes / sizeof(float)]))
        Trap("a block has written beyond its shared memory");
}

/// Launches with shared memory have barriers.
void RunGrid(const cudaLaunchConfig_t& rConfig, const std::function<void()>& fKernel)
{
    std::unique_lock aLock(g_aMutex, std::defer_lock);
    if (rConfig.dynamicSmemBytes > 0) aLock.lock();
    if (aLock) g_pKernel = &fKernel;
    g_iLaunches.fetch_add(1, std::memory_order_relaxed);
    for (std::size_t b = 0; b < Count(rConfig.gridDim); ++b)
    {
        blockIdx = Unravel(b, rConfig.gridDim);
        if (aLock) RunBlockWithBarriers(rConfig);
        for (std::size_t t = 0; !aLock && t < Count(rConfig.blockDim); ++t)
        {
            threadIdx = Unravel(t, rConfig.blockDim);
            fKernel();
        }
    }
}
}  // namespace

cudaError_t Launch(const cudaLaunchConfig_t& rConfig, std::function<void()> fKernel)
{
    const dim3& g = rConfig.gridDim;
    if (Count(g) == 0 || g.y > 65535 || g.z > 65535 || Count(rConfig.blockDim) > 1024 ||
        rConfig.dynamicSmemBytes >= g_tSharedMax)
        return cudaErrorInvalidValue;
    return Enqueue("cudaLaunchKernelEx", rConfig.stream, [=] { RunGrid(rConfig, fKernel); });
}
}  // namespace SoftCuda

void __syncthreads()
{
    __tsan_switch_to_fiber(SoftCuda::g_pvOutside, 0);
    swapcontext(&SoftCuda::g_pRunning->aState, &SoftCuda::g_aOutside);
}
