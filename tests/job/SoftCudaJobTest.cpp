// What only a software CUDA device can show: failures at a chosen call, little memory, streams that
// run as late or as early as they may, and that nothing is left.

#include <gtest/gtest.h>

#include <array>

#include "gpulib/Device/Cuda/CudaClock.h"
#include "gpulib/Device/DeviceArray2D.h"
#include "gpulib/Device/DeviceError.h"
#include "tests/backends/Backends.h"
#include "tests/job/JobRunner.h"
#include "tests/softcuda/SoftCuda.h"

namespace
{
class SoftCudaJob : public testing::Test
{
protected:
    void SetUp() override { SoftCuda::Reset(); }
    void TearDown() override
    {
        SetBackend(nullptr);
        EXPECT_EQ(SoftCuda::GetLiveObjects().GetTotal(), 0);
        SoftCuda::Reset();
        TakeDeviceError();
    }
    TestJob m_aJob = []
    {
        TestJob aJob;
        aJob.iY = 9;
        aJob.iIterations = 2;
        aJob.uiSets = 2;
        return aJob;
    }();
    const TestData m_aStart = MakeData(m_aJob, 8);
};
}  // namespace

TEST_F(SoftCudaJob, StreamsMayRunInAnyOrder)
{
    const TestData aLazy = RunJob(m_aJob, m_aStart, {"cuda", 2, 2});
    EXPECT_GT(SoftCuda::GetLaunches(), 0);
    SoftCuda::SetOrder(SoftCuda::EOrder::eOthersFirst);
    const TestData aEager = RunJob(m_aJob, m_aStart, {"cuda", 2, 2});
    EXPECT_EQ(aLazy.strError + aEager.strError, "");
    EXPECT_EQ(aEager.vfVolume, aLazy.vfVolume);
    EXPECT_EQ(aEager.vdRfactor, aLazy.vdRfactor);
}

TEST_F(SoftCudaJob, HalvesTheBatchUntilItFits)
{
    const TestData aExpected = RunJob(m_aJob, m_aStart, {"cuda"});
    const std::size_t tPeak = SoftCuda::GetMemoryPeak();
    const int iLaunches = SoftCuda::GetLaunches();
    bool bFitted = false, bFailed = false;
    for (const double dShare : {0.9, 0.6, 0.4, 0.3, 0.01})
    {
        SoftCuda::Reset();
        SoftCuda::SetMemory(std::size_t(double(tPeak) * dShare));
        // The job believes what it asked first, before others took the memory.
        SoftCuda::FailNext("cudaMemGetInfo", cudaErrorUnknown);
        const TestData aResult = RunJob(m_aJob, m_aStart, {"cuda"});
        if (aResult.strError.empty())
        {
            EXPECT_EQ(aResult.vfVolume, aExpected.vfVolume) << dShare;
            EXPECT_GT(SoftCuda::GetLaunches(), iLaunches) << "of more batches";
            EXPECT_LT(SoftCuda::GetLaunches(), 4 * iLaunches) << "not row by row";
            bFitted = true;
        }
        else
        {
            EXPECT_NE(aResult.strError.find("out of memory"), std::string::npos)
                << aResult.strError;
            bFailed = true;
        }
    }
    EXPECT_TRUE(bFitted);
    EXPECT_TRUE(bFailed) << "a hundredth of the memory cannot be enough";
}

TEST_F(SoftCudaJob, FailuresNameTheCallAndTheNextJobWorks)
{
    const TestData aExpected = RunJob(m_aJob, m_aStart, {"cuda", 1, 3});
    for (const auto& [pcCall, iAfter, pcWords] :
         {std::tuple{"cudaMalloc3DArray", 0, ""},  // another try fits
          {"cudaMalloc", 0, ""},                   // of an upload: made in halves
          {"cudaMalloc", 3, ""},                   // of a download
          {"cudaMallocPitch", 0, ": 7 x 1 x 1, 1 rows"},
          {"cudaLaunchKernelEx", 30, "launch of"},
          {"cudaMemcpyAsync", 0, "stage: copy"},
          {"cudaMemcpyAsync", 2, ""} /* of a prefetch: tried again */,
          {"cudaEventSynchronize", 4, "wait"},
          {"cudaCreateTextureObject", 0, ""},
          {"cudaStreamCreateWithFlags", 0, "create stream"},
          {"cudaMallocHost", 1, "pin 16 MiB"}})
    {
        SCOPED_TRACE(testing::Message() << pcCall << " after " << iAfter);
        SetBackend(nullptr);
        SoftCuda::Reset();
        SoftCuda::FailNext(pcCall, cudaErrorMemoryAllocation, iAfter);
        const TestData aResult = RunJob(m_aJob, m_aStart, {"cuda", 1, 3});
        EXPECT_NE(aResult.strError.find(pcWords), std::string::npos) << aResult.strError;
        EXPECT_EQ(aResult.strError.empty(), *pcWords == 0) << aResult.strError;
        EXPECT_EQ(RunJob(m_aJob, m_aStart, {"cuda", 1, 3}).vfVolume, aExpected.vfVolume);
    }
}

TEST_F(SoftCudaJob, ALostDeviceFailsItsJobsOnly)
{
    SoftCuda::FailNext("cudaEventSynchronize", cudaErrorIllegalAddress, 3);
    const TestData aResult = RunJob(m_aJob, m_aStart, {"cuda", 2, 3});
    EXPECT_NE(aResult.strError, "");
}

TEST_F(SoftCudaJob, AClockNamesWhatItsThreadDoes)
{
    SetBackend(MakeTestBackend("cuda", 1));
    ASSERT_TRUE(GetBackend()->SelectDevice(0));
    CCudaClock::Totals aTotals;
    std::vector<float> vfValues(2 * 3 * 5 * 4, 1.0f);
    const auto RoundTrip = [&]
    {
        CDeviceArray2D aArray;
        aArray.SetLanes(4);
        return aArray.Create(5, 6) &&
               aArray.HostToDevice({vfValues.data(), 20, 5, 4}, 0, 0, 5, 6) &&
               aArray.ToHost({vfValues.data(), 20, 5, 4}, 0, 0, 5, 6);
    };
    {
        CCudaClock aClock;
        ASSERT_TRUE(RoundTrip() && RoundTrip() && aClock.Take(aTotals)) << TakeDeviceError();
        for (const auto& [pcName, iCount] : {std::pair{"upload", 4},  // two of them clear
                                             {"download", 2},
                                             {g_acToDevice, 2},
                                             {g_acToHost, 2},
                                             {g_acPack, 2},
                                             {g_acUnpack, 2},
                                             {g_acWait, 6}})  // chunk, chunk, end of the image
        {
            EXPECT_EQ(aTotals[pcName].iCount, iCount) << pcName;
            EXPECT_GT(aTotals[pcName].dSeconds, 0) << pcName;
        }
        EXPECT_EQ(aTotals.size(), 7u);

        SoftCuda::FailNext("cudaEventCreateWithFlags", cudaErrorMemoryAllocation);
        EXPECT_TRUE(RoundTrip()) << "only the clock is broken";
        EXPECT_FALSE(aClock.Take(aTotals));
        EXPECT_NE(TakeDeviceError().find("create event"), std::string::npos);
        EXPECT_TRUE(aClock.Take(aTotals)) << "and goes on";
        EXPECT_TRUE(aTotals.empty());
    }
    const int iEvents = SoftCuda::GetLiveObjects().iEvents;
    ASSERT_TRUE(RoundTrip());
    EXPECT_EQ(SoftCuda::GetLiveObjects().iEvents, iEvents) << "no clock, no events";
}
