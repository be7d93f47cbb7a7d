#include <gtest/gtest.h>

#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <ranges>
#include <thread>

#include "Util/Util_Memory.h"
#include "Util/Util_Volume.h"
#include "gpulib/App/Job.h"
#include "gpulib/Device/Backend.h"
#include "server/Config/ConfigFile.h"
#include "server/Config/GpuConfig.h"
#include "server/Data/Recon/ProjData.h"
#include "server/Data/Recon/ReconOpt.h"
#include "server/Data/Recon/Rfactor.h"
#include "server/Data/Recon/SmoothOpt.h"
#include "server/Data/Recon/VolData.h"
#include "server/Data/RemotePacket.h"
#include "server/Recon/DoBackProj.h"
#include "server/Recon/DoSartRecon.h"
#include "server/Thread/JobChecks.h"
#include "server/Thread/ReconMain.h"

// Jobs as the session's thread meets them: why one cannot run, and workers that fail.

namespace
{
constexpr int g_iWorkers = 3;

/// Hands a message to the holder that serves it, in our byte order.
template <class T>
void Upload(CRequestPlan (T::*pfnHandler)(const CRemotePacket&),
            const std::vector<unsigned>& rFields, const std::vector<unsigned>& rData = {})
{
    CRemotePacket aPacket;
    for (int n = 0; n < int(rFields.size()); ++n) aPacket.SetNthField(4 + n, rFields[n]);
    const auto uiBytes = std::uint32_t(4 * rData.size());
    EXPECT_TRUE(aPacket.SetOptSize(uiBytes));
    EXPECT_TRUE(uiBytes == 0 || aPacket.SetData4(0, rData.data(), uiBytes));
    std::string strReason;
    EXPECT_TRUE((T::GetInstance()->*pfnHandler)(aPacket).DoIt(aPacket, strReason)) << strReason;
}

constexpr unsigned g_uiOne = std::bit_cast<unsigned>(1.0f);

/// Back projection, or 2 iterations of SART.
void SetMethod(unsigned uiMethod)
{
    Upload(&CReconOpt::HandleReconOpt, {uiMethod, 2, 1, 0, 0}, {7, g_uiOne, g_uiOne});
}

class JobMain : public testing::Test
{
protected:
    JobMain()
    {
        SetBackend(MakeHostBackend("", g_iWorkers));
        CGpuConfig::GetInstance()->SelectDevices(CConfigFile(), {1000, 1000, 1000});
    }
    ~JobMain() override
    {
        CProjData::DeleteInstance();
        CVolData::DeleteInstance();
        CReconOpt::DeleteInstance();
        CSmoothOpt::DeleteInstance();
        CRfactor::DeleteInstance();
        CGpuConfig::DeleteInstance();
        SetBackend(nullptr);
    }

    /// 7 projections and 13 slices of 37 x uiY pixels.
    static void mUpload(unsigned uiY = 10)
    {
        Upload(&CProjData::HandleProjSize, {37, uiY, 7}, std::vector<unsigned>(14));
        Upload(&CVolData::HandleVolSize, {37, uiY, 13});
    }

    /// Runs a job on every worker to its end; \return the reason of a refusal or failure
    static std::string mReconstruct(const std::array<int, g_iWorkers>& rDevices = {0, 1, 2})
    {
        CReconMain aJob;
        std::string strReason;
        if (!aJob.Prepare(strReason)) return strReason;
        aJob.CalcSubsetDim(g_iWorkers);
        std::vector<std::thread> vThreads;
        for (int i = 0; i < g_iWorkers; ++i)
            vThreads.emplace_back([&, i] { aJob.DoIt(i, rDevices[i]); });
        for (std::thread& rThread : vThreads) rThread.join();
        const bool bDone = aJob.Finish(strReason);
        EXPECT_EQ(bDone, strReason.empty());
        return strReason;
    }
};
}  // namespace

// Of three workers with bands of 3, 3 and 4 rows on the host, for 2 iterations of 7 projections.
TEST_F(JobMain, NeedsTheMemoryOfAllWorkers)
{
    mUpload();
    SetMethod(1);
    ReconJob aJob;
    std::string strReason;
    ASSERT_TRUE(DescribeJob(aJob, strReason) && DescribeIterations(aJob, strReason));
    constexpr std::size_t tStackRow = 37 * 7, tSlice = 39 * 15, tSums = 2 * 7;
    constexpr std::size_t tBatches = 10 * 4 * (2 * tStackRow + tSlice), tRanges = 10 * 4 * 4 * 7;
    constexpr std::size_t tTables = 3 * (4 * 4 * tStackRow + 4 * 8 * tSums), tStore = 2 * 8 * tSums;
    const std::size_t tNeeded = tBatches + tRanges + tTables + tStore +
                                CProjData::GetInstance()->GetBytes() +
                                CVolData::GetInstance()->GetBytes();
    constexpr std::size_t tSmooth = 3 * 4 * (37 + 4) * 10 * 13;  // three copies, with overlaps
    for (const std::size_t tMore : {std::size_t(0), tSmooth})
    {
        Util_Memory::Assume(tNeeded + tMore);
        EXPECT_TRUE(CheckJobMemory(aJob, EJobKind::eIterative, strReason)) << strReason;
        Util_Memory::Assume(tNeeded + tMore - 1);
        EXPECT_FALSE(CheckJobMemory(aJob, EJobKind::eIterative, strReason));
        Util_Memory::Assume(0);
        Upload(&CSmoothOpt::HandleSmoothOpt, {1, 3, 1, 1}, {0, g_uiOne, 0});
        ASSERT_TRUE(DescribeIterations(aJob, strReason)) << strReason;
    }
}

// The first reason counts, the workers that would wait for the failed one are released, and the
// sums of those that came to their end go. Back projection has none, and leaves those of the job
// before. A device that cannot be used fails no job that has no work for it.
TEST_F(JobMain, FailureOfOneWorker)
{
    EXPECT_EQ(mReconstruct(), "there are no projections");
    mUpload(1);
    SetMethod(1);
    EXPECT_EQ(mReconstruct({97, 98, 0}), "");
    mUpload();
    Upload(&CSmoothOpt::HandleSmoothOpt, {1, 1, 1, 1}, {g_uiOne});
    const auto HasSums = [] { return !CRfactor::GetInstance()->GetNthIteration(1).empty(); };
    SetMethod(1);
    EXPECT_EQ(mReconstruct(), "");
    SetMethod(0);
    EXPECT_EQ(mReconstruct({0, 1, 99}), "device 99 of 3");
    EXPECT_TRUE(HasSums());
    SetMethod(1);
    EXPECT_EQ(mReconstruct({0, 1, 99}), "device 99 of 3");
    EXPECT_FALSE(HasSums());
}

// What no request can leave out: all projections, one subset of the whole stack, the whole slice.
TEST_F(JobMain, DriversCompleteAJob)
{
    mUpload();
    ReconJob aJob;
    aJob.pProjs = CProjData::GetInstance()->GetProjs();
    aJob.pTomoVol = CVolData::GetInstance()->GetTomoVolume();
    const CDoSartRecon aSart(aJob);
    EXPECT_TRUE(std::ranges::equal(aSart.GetJob().uiProjIndex, std::views::iota(0U, 7U)));
    EXPECT_TRUE(std::ranges::equal(aSart.GetJob().uiSetSize, std::vector{7U}));
    EXPECT_EQ(aSart.GetJob().aBox->afDim, (std::array{18.5f, 6.5f}));
    EXPECT_FALSE(CDoBackProj(aJob).GetJob().aBox);
}

TEST_F(JobMain, SavesTheVolume)
{
    EXPECT_FALSE(CReconMain::SaveVol());  // there is none
    mUpload();
    const std::string strPath = testing::TempDir() + "save-" + std::to_string(getpid()) + ".mrc";
    setenv("TALVEN_DEBUG_VOLUME", strPath.c_str(), 1);
    CConfigFile aConfig;
    aConfig.Load();
    unsetenv("TALVEN_DEBUG_VOLUME");
    CGpuConfig::GetInstance()->SelectDevices(aConfig, {1000});
    ASSERT_TRUE(CReconMain::SaveVol());
    EXPECT_EQ(std::filesystem::file_size(strPath), 132096 + 4 * 37 * 10 * 13u);
    std::filesystem::remove(strPath);
}
