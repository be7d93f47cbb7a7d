// What only a software CUDA device can show: failures at a chosen call, little memory, streams that
// run as late or as early as they may, and that nothing is left.

#include <gtest/gtest.h>

#include "gpulib/Device/DeviceError.h"
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

/// With so many sets that values move while kernels are queued.
TEST_F(SoftCudaJob, StreamsMayRunInAnyOrder)
{
    m_aJob.uiSets = 7;
    m_aJob.iIterations = 12;
    const TestData aLazy = mRun(2, 2);
    SoftCuda::g_aSettings.eOrder = SoftCuda::EOrder::eOthersFirst;
    const TestData aEager = mRun(2, 2);
    EXPECT_EQ(aLazy.strError + aEager.strError, "");
    EXPECT_EQ(aEager.vfVolume, aLazy.vfVolume);
    EXPECT_EQ(aEager.vdRfactor, aLazy.vdRfactor);
}

TEST_F(SoftCudaJob, ClearsAVolumeOfZerosWhereItIs)
{
    EXPECT_EQ(mRun().strError, "");
    const std::size_t tPeak = SoftCuda::g_tPeak;
    mForget();
    m_aJob.bZeroStart = true;
    m_aStart = MakeData(m_aJob, 8);
    EXPECT_EQ(mRun().strError, "");
    EXPECT_LT(SoftCuda::g_tPeak, tPeak) << "no room for values on their way";
}

/// A thread that had a device with a number that there is no more.
TEST_F(SoftCudaJob, ThreadsOutliveTheirDevices)
{
    std::string strReason;
    SetBackend(MakeBackend("cuda", strReason));
    ASSERT_TRUE(GetBackend()->SelectDevice(3));
    SetBackend(nullptr);
    SoftCuda::g_aSettings.iDevices = 1;
    SetBackend(MakeBackend("cuda", strReason));
    float fValue = 0;
    GetBackend()->Prefetch({&fValue, 1, 1, 1}, 1, 1);
    EXPECT_TRUE(GetBackend()->FinishDownload());
    DeviceImage aImage;
    aImage.iWidth = aImage.iHeight = 1;
    EXPECT_FALSE(GetBackend()->Create(aImage) || GetBackend()->SelectDevice(1) ||
                 GetBackend()->Create(aImage));
    EXPECT_EQ(TakeDeviceError(), "device 1 of 1");
    EXPECT_TRUE(GetBackend()->SelectDevice(0));
}

TEST_F(SoftCudaJob, HalvesTheBatchUntilItFits)
{
    m_aJob.iY = 160;
    m_aStart = MakeData(m_aJob, 8);
    const TestData aExpected = mRun();
    const int iWhole = SoftCuda::g_iLaunches;
    const std::size_t tPeak = SoftCuda::g_tPeak;
    for (const auto& [dShare, bFits] : {std::pair{0.4, true}, {0.65, true}, {0.01, false}})
    {
        mForget();
        SoftCuda::g_aSettings.tMemory = std::size_t(double(tPeak) * dShare);
        // The job believes what it asked first, before others took the memory. The choice of the
        // backend has asked every device before.
        SoftCuda::FailNext("cudaMemGetInfo", cudaErrorUnknown, SoftCuda::g_aSettings.iDevices);
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
    m_aJob.aiKernel = {3, 1, 1};
    m_aJob.vfKernel = {0.25f, 0.5f, 0.25f};
    m_aJob.uiInterval = 2;
    const TestData aExpected = mRun(1, 3);
    for (const auto& [pcCall, iAfter, pcWords] :
         {std::tuple{"cudaMallocAsync", 9, ""},  // another try fits
          {"cudaMallocAsync", 11, ""},           // of a volume to smooth: in two pieces
          {"cudaMalloc", 0, ""},                 // of an upload: made in halves
          {"cudaMalloc", 5, ""},                 // of a download
          {"cudaMallocAsync", 0, ": 7 x 1 x 1, 1 rows"},
          {"cudaLaunchKernelEx", 30, "launch of"},
          {"cudaMemcpyAsync", 0, "upload table"},
          {"cudaMemcpyAsync", 6, "stage: copy"},
          {"cudaEventSynchronize", 4, "wait"},
          {"cudaStreamCreateWithFlags", 0, "create stream"},
          {"cudaMallocHost", 1, "pin 4 MiB"}})
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
