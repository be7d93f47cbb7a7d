#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "Util/TomoVolume.h"
#include "Util/Util_Volume.h"

namespace
{
constexpr int g_iThreads = 7;

void RunThreads(auto aWork)
{
    std::vector<std::thread> vThreads;
    for (int i = 0; i < g_iThreads; ++i) vThreads.emplace_back(aWork, i);
    for (std::thread& rThread : vThreads) rThread.join();
}
}  // namespace

// Each thread writes its own count between rendezvous and reads all others after them: a thread
// that gets through early sees a wrong count, and the thread sanitizer a race.
TEST(Rendezvous, NobodyOvertakes)
{
    constexpr int iRounds = 3000;
    CTomoVolume aVolume(nullptr, g_iThreads);
    int aiCount[g_iThreads] = {};
    std::atomic<int> iWrong = 0;
    RunThreads(
        [&](int i)
        {
            for (int r = 1; r <= iRounds; ++r)
            {
                aiCount[i] = r;
                if (!aVolume.Rendezvous()) ++iWrong;
                for (const int iCount : aiCount) iWrong += iCount != r;
                if (!aVolume.Rendezvous()) ++iWrong;
            }
        });
    EXPECT_EQ(iWrong, 0);
}

TEST(Rendezvous, AbortReleasesAllAndResetForgetsIt)
{
    CTomoVolume aVolume(nullptr, g_iThreads);
    for (int iRound = 0; iRound < 200; ++iRound)
    {
        std::atomic<int> iReleased = 0;
        RunThreads(
            [&](int i)
            {
                if (i == iRound % g_iThreads)
                    aVolume.Abort();
                else if (!aVolume.Rendezvous())
                    ++iReleased;
            });
        EXPECT_EQ(iReleased, g_iThreads - 1);
        EXPECT_FALSE(aVolume.Rendezvous());

        aVolume.Reset();
        std::atomic<int> iMet = 0;
        RunThreads([&](int) { iMet += aVolume.Rendezvous(); });
        EXPECT_EQ(iMet, g_iThreads);
    }
}

TEST(Rendezvous, NotifyAndWait)
{
    Util_Volume aData;
    aData.SetSize(3, 4, 5);
    CTomoVolume aVolume(&aData, 1);
    EXPECT_EQ(aVolume.GetSize()[1], 4);
    aVolume.NotifyDone();
    aVolume.WaitAllDone();  // alone: at once

    aVolume.Set(&aData, 2);
    aVolume.NotifyDone();
    std::thread aOther(
        [&]
        {
            aVolume.NotifyDone();
            aVolume.WaitAllDone();
        });
    aOther.join();
    aVolume.WaitAllDone();  // the other was the last: the flag is set
}
