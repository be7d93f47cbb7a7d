#include <barrier>
#include <optional>
#include <thread>

#include "tests/softcuda/Call.h"
#include "tests/softcuda/Kernel.h"

namespace SoftCuda
{
namespace
{
/// The barrier of one block. Threads that returned are not waited for, as on the device; that
/// threads met different numbers of barriers is found when the block is done.
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
thread_local Block* t_pBlock = nullptr;
thread_local int t_iMet = 0;  // barriers of this block

void MeetThreads()
{
    ++t_iMet;
    t_pBlock->aBarrier.arrive_and_wait();
}
}  // namespace

void RunOnThreads(CDevice& rDevice, const Shape& rShape, const Kernel& rKernel)
{
    const int iThreads = rShape.GetThreads();
    std::optional<Block> oBlock;
    const auto NextBlock = [&]() noexcept
    {
        if (oBlock && oBlock->bDiverged) Trap(s_acDiverged);
        ClearShared(rShape);
        oBlock.emplace(iThreads);
    };
    std::barrier aBetween(iThreads, NextBlock);
    const auto Thread = [&](int t)
    {
        EnterKernel(&rDevice, rShape, MeetThreads);
        threadIdx = rShape.GetThread(t);
        for (std::size_t b = 0; b < rShape.GetBlocks(); ++b)
        {
            aBetween.arrive_and_wait();
            blockIdx = rShape.GetBlock(b);
            t_pBlock = &*oBlock;
            t_iMet = 0;
            if (!rDevice.IsBroken()) rKernel();
            oBlock->Leave(t_iMet);
        }
        aBetween.arrive_and_wait();
    };
    std::vector<std::jthread> vThreads;
    for (int t = 0; t < iThreads; ++t) vThreads.emplace_back(Thread, t);
}
}  // namespace SoftCuda
