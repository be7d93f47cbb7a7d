#include <ucontext.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "tests/softcuda/Call.h"
#include "tests/softcuda/Kernel.h"

namespace SoftCuda
{
namespace
{
constexpr std::size_t tStack = 128 * 1024;

struct Fiber
{
    ucontext_t aContext;
    std::unique_ptr<char[]> pcStack = std::make_unique_for_overwrite<char[]>(tStack);
    bool bDone = false;
    uint3 aThread{};
};

struct Scheduler
{
    ucontext_t aContext;
    Fiber* pRunning = nullptr;
    const Kernel* pKernel = nullptr;
};
thread_local Scheduler* t_pScheduler = nullptr;

void MeetFibers()
{
    swapcontext(&t_pScheduler->pRunning->aContext, &t_pScheduler->aContext);
}

void Main()
{
    (*t_pScheduler->pKernel)();
    t_pScheduler->pRunning->bDone = true;
}  // goes on at uc_link

/// Sets a fiber to the begin of the kernel; at the kernel's end rNext goes on.
[[gnu::noinline]] void Prepare(Fiber& rFiber, ucontext_t& rNext)
{
    getcontext(&rFiber.aContext);
    rFiber.aContext.uc_stack.ss_sp = rFiber.pcStack.get();
    rFiber.aContext.uc_stack.ss_size = tStack;
    rFiber.aContext.uc_link = &rNext;
    makecontext(&rFiber.aContext, Main, 0);
    rFiber.bDone = false;
}

/// Runs every fiber to its next barrier or its end.
void RunRound(Scheduler& rScheduler, std::vector<Fiber>& rvFibers)
{
    for (Fiber& rFiber : rvFibers)
    {
        rScheduler.pRunning = &rFiber;
        threadIdx = rFiber.aThread;
        swapcontext(&rScheduler.aContext, &rFiber.aContext);
    }
    std::reverse(rvFibers.begin(), rvFibers.end());
}
}  // namespace

void RunOnFibers(CDevice& rDevice, const Shape& rShape, const Kernel& rKernel)
{
    EnterKernel(&rDevice, rShape, MeetFibers);
    Scheduler aScheduler;
    aScheduler.pKernel = &rKernel;
    t_pScheduler = &aScheduler;
    std::vector<Fiber> vFibers(rShape.GetThreads());
    for (int t = 0; t < rShape.GetThreads(); ++t) vFibers[t].aThread = rShape.GetThread(t);
    for (std::size_t b = 0; b < rShape.GetBlocks() && !rDevice.IsBroken(); ++b)
    {
        blockIdx = rShape.GetBlock(b);
        ClearShared(rShape);
        for (Fiber& rFiber : vFibers) Prepare(rFiber, aScheduler.aContext);
        const auto IsDone = [](const Fiber& rFiber) { return rFiber.bDone; };
        do RunRound(aScheduler, vFibers);
        while (std::none_of(vFibers.begin(), vFibers.end(), IsDone));
        if (!std::all_of(vFibers.begin(), vFibers.end(), IsDone)) Trap(s_acDiverged);
    }
}
}  // namespace SoftCuda
