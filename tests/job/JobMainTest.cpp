#include <gtest/gtest.h>

#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <numeric>
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
#include "server/Data/Recon/SetOp.h"
#include "server/Data/Recon/SmoothOpt.h"
#include "server/Data/Recon/VolData.h"
#include "server/Data/Recon/WeightOpt.h"
#include "server/Data/RemotePacket.h"
#include "server/Recon/DoBackProj.h"
#include "server/Recon/DoSartRecon.h"
#include "server/Thread/JobChecks.h"
#include "server/Thread/ReconMain.h"

// Jobs as the session's thread meets them: why one cannot run, and workers that fail.

namespace
{
constexpr int g_iWorkers = 3;

/// A field or a value of the data.
unsigned Bits(auto tValue)
{
    return std::bit_cast<unsigned>(tValue);
}

/// Hands a message to the holder that serves it, in our byte order.
template <class T>
void Upload(CRequestPlan (T::*pfnHandler)(const CRemotePacket&),
            const std::vector<unsigned>& rFields, const std::vector<unsigned>& rData = {})
{
    CRemotePacket aPacket;
    int n = 4;
    for (const unsigned uiField : rFields) aPacket.SetNthField(n++, uiField);
    const auto uiBytes = std::uint32_t(4 * rData.size());
    EXPECT_TRUE(aPacket.SetOptSize(uiBytes));
    EXPECT_TRUE(uiBytes == 0 || aPacket.SetData4(0, rData.data(), uiBytes));
    std::string strReason;
    EXPECT_TRUE((T::GetInstance()->*pfnHandler)(aPacket).DoIt(aPacket, strReason)) << strReason;
}

void SetOptions(unsigned uiMethod, unsigned uiIterations, const std::vector<unsigned>& rSizes,
                float fRelax = 1)
{
    std::vector<unsigned> vuiData = rSizes;
    vuiData.resize(rSizes.size() * (1 + uiIterations), Bits(fRelax));
    Upload(&CReconOpt::HandleReconOpt, {uiMethod, uiIterations, unsigned(rSizes.size()), 0, 0},
           vuiData);
}

void SetBox(float fHalf)
{
    Upload(&CWeightOpt::HandleWeightOpt, {1, 1, 0, 0, Bits(fHalf), Bits(1.0f)});
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
        CSetOp::DeleteInstance();
        CWeightOpt::DeleteInstance();
        CSmoothOpt::DeleteInstance();
        CRfactor::DeleteInstance();
        CGpuConfig::DeleteInstance();
        SetBackend(nullptr);
    }

    /// 7 projections and 13 slices of 37 x uiY pixels.
    static void mUpload(unsigned uiY = 10, float fAngle = 0)
    {
        Upload(&CProjData::HandleProjSize, {37, uiY, 7}, std::vector<unsigned>(14, Bits(fAngle)));
        Upload(&CVolData::HandleVolSize, {37, uiY, 13});
    }

    /// Runs a job on every worker to its end; \return the reason of a refusal or failure
    static std::string mReconstruct()
    {
        CReconMain aJob;
        std::string strReason;
        if (!aJob.Prepare(strReason)) return strReason;
        aJob.CalcSubsetDim(g_iWorkers);
        std::vector<std::thread> vThreads;
        for (int i = 0; i < g_iWorkers; ++i) vThreads.emplace_back([&, i] { aJob.DoIt(i, i); });
        for (std::thread& rThread : vThreads) rThread.join();
        const bool bDone = aJob.Finish(strReason);
        EXPECT_EQ(bDone, strReason.empty());
        return strReason;
    }
};
}  // namespace

TEST_F(JobMain, WhatCannotRunIsRefused)
{
    EXPECT_EQ(mReconstruct(), "there are no projections");
    const auto Volume = [] { return CVolData::GetInstance()->GetVolume(); };
    const std::pair<const char*, std::function<void()>> aCases[] = {
        {"the stack has 10 rows, the volume 9", [&] { Volume()->SetSize(37, 9, 13); }},
        {"there is no volume", [&] { Volume()->DeleteVolume(); }},
        {"the volume has 65536 slices, at most 65535", [&] { Volume()->SetSize(1, 10, 65536); }},
        {"no projection is selected",
         [] {
             Upload(&CSetOp::HandleSetOp, {1, 0});
         }},
        {"projection 7 is selected, the stack has 7",
         [] {
             Upload(&CSetOp::HandleSetOp, {1, 2}, std::vector<unsigned>{1, 7});
         }},
        {"1 iterations of 0 subsets", [] { SetOptions(1, 1, {}); }},
        {"0 iterations of 1 subsets", [] { SetOptions(2, 0, {7}); }},
        {"relaxation factor 0 is nan", [] { SetOptions(1, 2, {7}, NAN); }},
        {"the weight box is at (0, 0) with half size (nan, 1)", [] { SetBox(NAN); }},
        {"the weight box is at (0, 0) with half size (3e+38, 1)", [] { SetBox(3e38f); }},
        {"the angle of projection 0 is inf", [] { mUpload(10, INFINITY); }},
        {"value 0 of the smoothing kernel is inf",
         []
         {
             SetOptions(1, 1, {7});
             Upload(&CSmoothOpt::HandleSmoothOpt, {1, 1, 1, 1}, {Bits(INFINITY)});
         }},
        {"the 3 subsets have 4294967296 projections together, at most 4294967295",
         [] {
             SetOptions(2, 1, std::vector<unsigned>{0x7fffffff, 0x7fffffff, 2});
         }},
    };
    for (const auto& [pcReason, aChange] : aCases)
    {
        mUpload();
        SetOptions(0, 0, {});
        SetBox(18);
        ASSERT_EQ(mReconstruct(), "") << pcReason;
        aChange();
        EXPECT_EQ(mReconstruct(), pcReason);
    }
}

// Of three workers with bands of 3, 3 and 4 rows on the host, for 2 iterations of 7 projections.
TEST_F(JobMain, NeedsTheMemoryOfAllWorkers)
{
    mUpload();
    SetOptions(1, 2, {7});
    ReconJob aJob;
    std::string strReason;
    ASSERT_TRUE(DescribeJob(aJob, strReason) && DescribeIterations(aJob, strReason));
    constexpr std::size_t tStackRow = 37 * 7, tSlice = 39 * 15, tSums = 2 * 7;
    constexpr std::size_t tBatches = 10 * 4 * (3 * tStackRow + tSlice), tRanges = 10 * 4 * 4 * 7;
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
        Upload(&CSmoothOpt::HandleSmoothOpt, {1, 3, 1, 1}, {0, Bits(1.0f), 0});
        ASSERT_TRUE(DescribeIterations(aJob, strReason)) << strReason;
    }
}

// The first reason counts, the workers that would wait for the failed one are released, and the
// sums of those that came to their end go. Back projection has none, and leaves those of the job
// before.
TEST_F(JobMain, FailureOfOneWorker)
{
    mUpload();
    SetOptions(1, 2, {7});
    Upload(&CSmoothOpt::HandleSmoothOpt, {1, 1, 1, 1}, {Bits(1.0f)});
    ASSERT_EQ(mReconstruct(), "");
    const auto FailsOnThirdDevice = []
    {
        SetBackend(MakeHostBackend("", g_iWorkers - 1));
        const std::string strReason = mReconstruct();
        SetBackend(MakeHostBackend("", g_iWorkers));
        return strReason;
    };
    SetOptions(0, 0, {});
    EXPECT_EQ(FailsOnThirdDevice(), "device 2 of 2");
    EXPECT_FALSE(CRfactor::GetInstance()->GetNthIteration(1).empty());
    SetOptions(1, 2, {7});
    EXPECT_EQ(FailsOnThirdDevice(), "device 2 of 2");
    EXPECT_TRUE(CRfactor::GetInstance()->GetNthIteration(0).empty());
    ASSERT_EQ(mReconstruct(), "");
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

// A device that cannot be used fails no job that has no work for it.
TEST_F(JobMain, WorkersWithoutRowsNeedNoDevice)
{
    mUpload(1);
    for (const unsigned uiMethod : {0U, 1U})
    {
        SetOptions(uiMethod, 1, {7});
        CReconMain aJob;
        std::string strReason;
        ASSERT_TRUE(aJob.Prepare(strReason)) << strReason;
        aJob.CalcSubsetDim(g_iWorkers);
        aJob.DoIt(0, 99);
        aJob.DoIt(1, 98);
        aJob.DoIt(2, 0);
        EXPECT_TRUE(aJob.Finish(strReason)) << strReason;
        aJob.DoIt(2, 97);
        EXPECT_FALSE(aJob.Finish(strReason));
        EXPECT_EQ(strReason, "device 97 of 3");
    }
}

TEST_F(JobMain, SavesTheVolume)
{
    EXPECT_FALSE(CReconMain::SaveVol());  // there is none
    mUpload();
    Util_Volume& rVolume = *CVolData::GetInstance()->GetVolume();
    std::iota(rVolume.GetData(), rVolume.GetData() + rVolume.GetVoxels(), 1.0f);
    const std::string strPath =
        testing::TempDir() + "talven-save-" + std::to_string(getpid()) + ".mrc";
    setenv("TALVEN_DEBUG_VOLUME", strPath.c_str(), 1);
    CConfigFile aConfig;
    aConfig.Load();
    unsetenv("TALVEN_DEBUG_VOLUME");
    CGpuConfig::GetInstance()->SelectDevices(aConfig, {1000, 1000, 1000});
    ASSERT_TRUE(CReconMain::SaveVol());

    std::ifstream aFile(strPath, std::ios::binary);
    std::array<std::int32_t, 4> aiHeader = {};
    std::vector<float> vfVolume(rVolume.GetVoxels() + 1);
    aFile.read(reinterpret_cast<char*>(aiHeader.data()), sizeof aiHeader);
    EXPECT_EQ(aiHeader, (std::array<std::int32_t, 4>{37, 10, 13, 2}));
    aFile.seekg(132096);
    aFile.read(reinterpret_cast<char*>(vfVolume.data()), std::streamsize(4 * vfVolume.size()));
    EXPECT_EQ(std::size_t(aFile.gcount()), 4 * rVolume.GetVoxels());
    EXPECT_TRUE(std::equal(vfVolume.begin(), vfVolume.end() - 1, rVolume.GetData()));
    std::remove(strPath.c_str());
}
