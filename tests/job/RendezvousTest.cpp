#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "Util/TomoVolume.h"

// Each thread writes its own count between rendezvous and reads all others after them: a thread
// that gets through early sees a wrong count, and the thread sanitizer a race. Now and then one
// aborts instead: all others are released, and a reset forgets it.
TEST(Rendezvous, NobodyOvertakesAndAbortReleasesAll)
{
    constexpr int iThreads = 7, iRounds = 3000, iAborts = 200;
    CTomoVolume aVolume(nullptr, iThreads);
    int aiCount[iThreads] = {};
    std::atomic<int> iWrong = 0, iReleased = 0;
    const auto Run = [&](auto aWork)
    {
        std::vector<std::jthread> vThreads;
        for (int i = 0; i < iThreads; ++i) vThreads.emplace_back(aWork, i);
    };
    for (int k = 0; k < iAborts; ++k)
    {
        const auto Abort = [&](int i)
        { i == k % iThreads ? aVolume.Abort() : void(iReleased += !aVolume.Rendezvous()); };
        Run(Abort);
        EXPECT_FALSE(aVolume.Rendezvous());
        aVolume.Reset();
        const auto Count = [&](int i)
        {
            for (int r = 1; r <= iRounds / iAborts; ++r)
            {
                aiCount[i] = r;
                iWrong += !aVolume.Rendezvous();
                for (const int iCount : aiCount) iWrong += iCount != r;
                iWrong += !aVolume.Rendezvous();
            }
        };
        Run(Count);
    }
    EXPECT_EQ(iWrong, 0);
    EXPECT_EQ(iReleased, iAborts * (iThreads - 1));
}

TEST(Rendezvous, NotifyAndWait)
{
    CTomoVolume aVolume(nullptr, 2);
    const auto Meet = [&] { aVolume.NotifyDone(), aVolume.WaitAllDone(); };
    std::thread aOther(Meet);
    Meet();
    aOther.join();
}
