#include <gtest/gtest.h>

#include <atomic>

#include "Util/Util_Thread.h"
#include "Util/Util_Time.h"

namespace
{
/// Runs until it is told to stop.
struct Poller : Util_Thread
{
    std::atomic<int> m_iRuns = 0;
    void ThreadMain() override
    {
        mSetAlive(true);
        ++m_iRuns;
        while (!mNeedStop()) mYield(0.5f);
        mThreadExit();
    }
};

TEST(Thread, LivesFromStartToStop)
{
    Poller aPoller;
    Util_Time aTime;
    aTime.Measure();
    EXPECT_FALSE(aPoller.WaitForExit(1.5f));  // the fraction counts in thousandths of what it says
    EXPECT_NEAR(aTime.GetElapsedSeconds(), 1.0, 0.4);
    for (const int iRun : {1, 2})  // a dead one can start again
    {
        EXPECT_TRUE(aPoller.Start());
        while (!aPoller.IsAlive()) aPoller.WaitForExit(0.5f);
        EXPECT_TRUE(aPoller.Start());  // alive: no second thread
        aPoller.Stop();
        EXPECT_FALSE(aPoller.WaitForExit(-1));
        EXPECT_EQ(aPoller.m_iRuns, iRun);
    }
}
}  // namespace
