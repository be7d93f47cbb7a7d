#include <gtest/gtest.h>

#include <atomic>

#include "Util/Util_Thread.h"
#include "Util/Util_Time.h"

namespace
{
/// Runs until it is told to stop.
class Poller : public Util_Thread
{
public:
    ~Poller() override
    {
        Stop();
        WaitForExit(-1);
    }
    std::atomic<int> m_iRuns{0};

protected:
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
    EXPECT_FALSE(aPoller.IsAlive());
    EXPECT_TRUE(aPoller.Start());
    while (!aPoller.IsAlive()) aPoller.WaitForExit(0.5f);
    EXPECT_TRUE(aPoller.Start());  // alive: no second thread
    EXPECT_TRUE(aPoller.WaitForExit(0.0f));
    aPoller.Stop();
    EXPECT_FALSE(aPoller.WaitForExit(-1));
    EXPECT_EQ(aPoller.m_iRuns, 1);
    EXPECT_TRUE(aPoller.Start());  // a dead one can start again
    while (aPoller.m_iRuns < 2) aPoller.WaitForExit(0.5f);
}

TEST(Time, MeasuresAndStartsAgain)
{
    Poller aPoller;
    Util_Time aTime;
    aTime.Measure();
    aPoller.WaitForExit(1.5f);  // the fraction counts in thousandths of what one expects
    EXPECT_NEAR(aTime.GetElapsedSeconds(), 1.0, 0.4);
    aTime.Measure();
    EXPECT_LT(aTime.GetElapsedSeconds(), 0.5);
}
}  // namespace
