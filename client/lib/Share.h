#pragma once

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "Machine/MachineLimits.h"

namespace talven
{

/// Threads for work that all cores share; more than 16 gain little where memory is the limit.
inline int CountThreads()
{
    return std::min(CMachineLimits::CountCores(), 16);
}

/// Work(iThread, i) for every i from 0 to iCount - 1, in so many threads.
template <class F>
void Share(int iThreads, int iCount, const F& Work)
{
    std::atomic<int> iNext = 0;
    std::vector<std::jthread> aThreads;
    aThreads.reserve(std::size_t(iThreads));
    for (int iThread = 0; iThread < iThreads; ++iThread)
        aThreads.emplace_back(
            [&iNext, &Work, iCount, iThread]
            {
                for (int i = iNext++; i < iCount; i = iNext++) Work(iThread, i);
            });
}

}  // namespace talven
