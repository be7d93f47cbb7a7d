// What only a software CUDA device can show: failures at a chosen call, little memory, streams that
// run as late or as early as they may, and that nothing is left.

#include <gtest/gtest.h>

#include "tests/job/JobRunner.h"
#include "tests/softcuda/SoftCuda.h"

namespace
{
class SoftCudaJob : public testing::Test
{
protected:
    SoftCudaJob()
    {
        mForget();
        m_aJob.iY = 9;
        m_aJob.iIterations = 2;
        m_aJob.uiSets = 2;
        m_aStart = MakeData(m_aJob, 8);
    }
    ~SoftCudaJob() override { mForget(); }
    /// A new machine; nothing of what went before is left.
    static void mForget()
    {
        SetBackend(nullptr);
        EXPECT_EQ(SoftCuda::g_iHeld, 0);
        SoftCuda::Reset();
    }
    TestData mRun(int iWorkers = 1, int iMaxRows = 0) const
    {
        return RunJob(m_aJob, m_aStart, {"cuda", iWorkers, iMaxRows});
    }
    TestJob m_aJob;
    TestData m_aStart;
};
}  // namespace

TEST_F(SoftCudaJob, StreamsMayRunInAnyOrder)
{
    const TestData aLazy = mRun(2, 2);
    SoftCuda::g_aSettings.eOrder = SoftCuda::EOrder::eOthersFirst;
    const TestData aEager = mRun(2, 2);
    EXPECT_EQ(aLazy.strError + aEager.strError, "");
    EXPECT_EQ(aEager.vfVolume, aLazy.vfVolume);
    EXPECT_EQ(aEager.vdRfactor, aLazy.vdRfactor);
}

TEST_F(SoftCudaJob, HalvesTheBatchUntilItFits)
{
    const TestData aExpected = mRun();
    const int iWhole = SoftCuda::g_iLaunches;
    const std::size_t tPeak = SoftCuda::g_tPeak;
    for (const auto& [dShare, bFits] : {std::pair{0.6, true}, {0.9, true}, {0.01, false}})
    {
        mForget();
        SoftCuda::g_aSettings.tMemory = std::size_t(double(tPeak) * dShare);
        // The job believes what it asked first, before others took the memory.
        SoftCuda::FailNext("cudaMemGetInfo", cudaErrorUnknown);
        const TestData aResult = mRun();
        EXPECT_EQ(aResult.strError.find("out of memory") == std::string::npos, bFits) << dShare;
        EXPECT_EQ(aResult.vfVolume == aExpected.vfVolume, bFits) << dShare;
        // More batches, but not row by row.
        const int iLaunches = SoftCuda::g_iLaunches;
        EXPECT_EQ(iLaunches > iWhole && iLaunches < 4 * iWhole, bFits);
    }
}

TEST_F(SoftCudaJob, FailuresNameTheCallAndTheNextJobWorks)
{
    const TestData aExpected = mRun(1, 3);
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
        mForget();
        SoftCuda::FailNext(pcCall, cudaErrorMemoryAllocation, iAfter);
        const std::string strError = mRun(1, 3).strError;
        EXPECT_NE(strError.find(pcWords), std::string::npos) << strError;
        EXPECT_EQ(strError.empty(), *pcWords == 0) << strError;
        EXPECT_EQ(mRun(1, 3).vfVolume, aExpected.vfVolume);
    }
    // A device that is lost while another works.
    SoftCuda::FailNext("cudaEventSynchronize", cudaErrorIllegalAddress, 3);
    EXPECT_NE(mRun(2, 3).strError, "");
}
