// What only a software CUDA device can show: failures at a chosen call, little memory, streams that
// run as late or as early as they may, and that nothing is left.

#include <gtest/gtest.h>

#include <map>

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
    void SetUp() override
    {
        SetBackend(nullptr);
        SoftCuda::Reset();
    }
    void TearDown() override
    {
        SetBackend(nullptr);
        EXPECT_EQ(SoftCuda::GetCounts().iHeld, 0);
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
    EXPECT_GT(SoftCuda::GetCounts().iLaunches, 0);
    SoftCuda::g_aSettings.eOrder = SoftCuda::EOrder::eOthersFirst;
    const TestData aEager = RunJob(m_aJob, m_aStart, {"cuda", 2, 2});
    EXPECT_EQ(aLazy.strError + aEager.strError, "");
    EXPECT_EQ(aEager.vfVolume, aLazy.vfVolume);
    EXPECT_EQ(aEager.vdRfactor, aLazy.vdRfactor);
}

TEST_F(SoftCudaJob, HalvesTheBatchUntilItFits)
{
    const TestData aExpected = RunJob(m_aJob, m_aStart, {"cuda"});
    const std::size_t tPeak = SoftCuda::GetCounts().tPeak;
    const int iLaunches = SoftCuda::GetCounts().iLaunches;
    for (const auto& [dShare, bFits] : {std::pair{0.6, true}, {0.9, true}, {0.01, false}})
    {
        SetBackend(nullptr);
        SoftCuda::Reset();
        SoftCuda::g_aSettings.tMemory = std::size_t(double(tPeak) * dShare);
        // The job believes what it asked first, before others took the memory.
        SoftCuda::FailNext("cudaMemGetInfo", cudaErrorUnknown);
        const TestData aResult = RunJob(m_aJob, m_aStart, {"cuda"});
        EXPECT_EQ(aResult.strError.find("out of memory") == std::string::npos, bFits) << dShare;
        EXPECT_EQ(aResult.vfVolume == aExpected.vfVolume, bFits) << dShare;
        // More batches, but not row by row.
        EXPECT_TRUE(!bFits || (SoftCuda::GetCounts().iLaunches > iLaunches &&
                               SoftCuda::GetCounts().iLaunches < 4 * iLaunches));
    }
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
    // A device that is lost while another works.
    SoftCuda::FailNext("cudaEventSynchronize", cudaErrorIllegalAddress, 3);
    EXPECT_NE(RunJob(m_aJob, m_aStart, {"cuda", 2, 3}).strError, "");
}

TEST_F(SoftCudaJob, AClockNamesWhatItsThreadDoes)
{
    SetBackend(MakeTestBackend("cuda", 1));
    ASSERT_TRUE(GetBackend()->SelectDevice(0));
    std::vector<float> vfValues(2 * 3 * 5 * 4, 1.0f);
    CDeviceArray2D aArray;
    aArray.SetLanes(4);
    CCudaClock aClock;
    CCudaClock::Totals aTotals;
    const auto RoundTrip = [&]
    {
        return aArray.Create(5, 6) &&
               aArray.HostToDevice({vfValues.data(), 20, 5, 4}, 0, 0, 5, 6) &&
               aArray.ToHost({vfValues.data(), 20, 5, 4}, 0, 0, 5, 6) && aClock.Take(aTotals);
    };
    ASSERT_TRUE(RoundTrip()) << TakeDeviceError();
    std::map<std::string, int> aCounts;
    for (const auto& [strName, rTotal] : aTotals)
        if (rTotal.dSeconds > 0) aCounts[strName] = rTotal.iCount;
    EXPECT_EQ(aCounts, (std::map<std::string, int>{{"upload", 2},
                                                   {"download", 1},
                                                   {g_acToDevice, 1},
                                                   {g_acToHost, 1},
                                                   {g_acPack, 1},
                                                   {g_acUnpack, 1},
                                                   {g_acWait, 2}}));
    SoftCuda::FailNext("cudaEventCreateWithFlags", cudaErrorMemoryAllocation);
    EXPECT_FALSE(RoundTrip()) << "only the clock is broken";
    EXPECT_NE(TakeDeviceError().find("create event"), std::string::npos);
    EXPECT_TRUE(aClock.Take(aTotals) && aTotals.empty()) << "and goes on";
}
