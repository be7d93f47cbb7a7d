#include <gtest/gtest.h>

#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <thread>

#include "Util/Util_Volume.h"
#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"
#include "server/Config/ConfigFile.h"
#include "server/Config/GpuConfig.h"
#include "server/Data/MsgConst.h"
#include "server/Data/Recon/ProjData.h"
#include "server/Data/Recon/ReconOpt.h"
#include "server/Data/Recon/Rfactor.h"
#include "server/Data/Recon/SetOp.h"
#include "server/Data/Recon/SmoothOpt.h"
#include "server/Data/Recon/VolData.h"
#include "server/Data/Recon/WeightOpt.h"
#include "server/Data/RemotePacket.h"
#include "server/Thread/BandSplit.h"
#include "server/Thread/JobStatus.h"
#include "server/Thread/ReconMain.h"
#include "tests/job/JobRunner.h"

// Jobs from the uploads to the results: what is refused, which defaults take effect.

namespace
{
constexpr int g_iWorkers = 3;

/// A message as the client would send it, in our byte order.
CRemotePacket MakePacket(std::initializer_list<unsigned> aFields, std::span<const float> fData = {})
{
    CRemotePacket aPacket;
    int n = 4;
    for (const unsigned uiField : aFields) aPacket.SetNthField(n++, uiField);
    const auto uiBytes = std::uint32_t(fData.size_bytes());
    EXPECT_TRUE(aPacket.SetOptSize(uiBytes));
    EXPECT_TRUE(uiBytes == 0 || aPacket.SetData4(0, fData.data(), uiBytes));
    return aPacket;
}

unsigned Bits(float fValue)
{
    return std::bit_cast<unsigned>(fValue);
}

class JobMain : public testing::Test
{
protected:
    JobMain()
    {
        SetBackend(MakeHostBackend("", g_iWorkers));
        CGpuConfig::GetInstance()->SelectDevices(CConfigFile(), {1000, 1000, 1000});
        m_aJob.iY = 10;
        m_aStart = MakeData(m_aJob, 11);
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
    }

    void mUpload()
    {
        std::vector<float> vfPairs;
        for (const float fAngle : m_aJob.vfAngles) vfPairs.insert(vfPairs.end(), {fAngle, 0.0f});
        std::string strReason;
        EXPECT_TRUE(CProjData::GetInstance()->HandleProjSize(
            MakePacket(
                {unsigned(m_aJob.iProjX), unsigned(m_aJob.iY), unsigned(m_aJob.vfAngles.size())},
                vfPairs),
            strReason));
        EXPECT_TRUE(CVolData::GetInstance()->HandleVolSize(
            MakePacket({unsigned(m_aJob.iVolX), unsigned(m_aJob.iY), unsigned(m_aJob.iVolZ)}),
            strReason));
        std::ranges::copy(m_aStart.vfProjs, CProjData::GetInstance()->GetProjs()->GetData());
        std::ranges::copy(m_aStart.vfVolume, CVolData::GetInstance()->GetVolume()->GetData());
    }

    static void mSetOptions(unsigned uiMethod, unsigned uiIterations,
                            const std::vector<unsigned>& rSizes, const std::vector<float>& rRelax)
    {
        std::vector<float> vfData;
        for (const unsigned uiSize : rSizes) vfData.push_back(std::bit_cast<float>(uiSize));
        vfData.insert(vfData.end(), rRelax.begin(), rRelax.end());
        std::string strReason;
        EXPECT_TRUE(CReconOpt::GetInstance()->HandleReconOpt(
            MakePacket({uiMethod, uiIterations, unsigned(rSizes.size()), 0, 0}, vfData), strReason))
            << strReason;
    }

    static void mSelect(const std::vector<unsigned>& rList)
    {
        std::vector<float> vfData;
        for (const unsigned uiProj : rList) vfData.push_back(std::bit_cast<float>(uiProj));
        std::string strReason;
        EXPECT_TRUE(CSetOp::GetInstance()->HandleSetOp(
            MakePacket({1, unsigned(rList.size())}, vfData), strReason));
    }

    static void mSetKernel(unsigned uiInterval, const std::array<int, 3>& rSize,
                           const std::vector<float>& rKernel)
    {
        std::string strReason;
        EXPECT_TRUE(CSmoothOpt::GetInstance()->HandleSmoothOpt(
            MakePacket({uiInterval, unsigned(rSize[0]), unsigned(rSize[1]), unsigned(rSize[2])},
                       rKernel),
            strReason))
            << strReason;
    }

    static void mSetBox(const OracleBox& rBox)
    {
        CWeightOpt::GetInstance()->HandleWeightOpt(
            MakePacket({1, 1, Bits(rBox.afCentre[0]), Bits(rBox.afCentre[1]), Bits(rBox.afHalf[0]),
                        Bits(rBox.afHalf[1])}));
    }

    /// Runs every worker to its end; \return the reason of a failure
    template <class Main>
    static std::string mRunWorkers(Main aMain)
    {
        std::vector<std::thread> vThreads;
        for (int i = 0; i < g_iWorkers; ++i)
            vThreads.emplace_back(
                [=]
                {
                    EXPECT_TRUE(GetBackend()->SelectDevice(i));
                    aMain(i);
                });
        for (std::thread& rThread : vThreads) rThread.join();
        return CJobStatus::GetReason();
    }

    static std::string mReconstruct()
    {
        CJobStatus::Reset();
        std::string strReason;
        if (!CReconMain::Validate(strReason)) return strReason;
        CProjData::GetInstance()->DetRangeX();
        CReconMain::CalcSubsetDim(g_iWorkers);
        CReconMain::Prepare();
        return mRunWorkers([](int i) { CReconMain().DoIt(i, i); });
    }

    static std::vector<float> mGetVolume()
    {
        const Util_Volume& rVolume = *CVolData::GetInstance()->GetVolume();
        return {rVolume.GetData(), rVolume.GetData() + rVolume.GetVoxels()};
    }

    TestJob m_aJob;
    TestData m_aStart;
};
}  // namespace

TEST_F(JobMain, BandsCoverAllRows)
{
    CBandSplit aBands;
    for (const auto& [iRows, iBands, vExpected] : {std::tuple{100, 3, std::vector{33, 33, 34}},
                                                   {100, 1, {100}},
                                                   {7, 2, {3, 4}},
                                                   {2, 3, {0, 0, 2}}})
    {
        aBands.Calculate(iRows, iBands);
        int iStart = 0;
        for (int i = 0; i < iBands; ++i)
        {
            EXPECT_EQ(aBands.GetStart(i), iStart);
            EXPECT_EQ(aBands.GetSize(i), vExpected[i]);
            iStart += vExpected[i];
        }
        EXPECT_FALSE(aBands.HasBand(iBands));
    }
}

TEST_F(JobMain, SavesTheVolume)
{
    EXPECT_FALSE(CReconMain::SaveVol());  // there is none
    mUpload();
    const std::string strPath =
        testing::TempDir() + "talven-save-" + std::to_string(getpid()) + ".mrc";
    setenv("TALVEN_DEBUG_VOLUME", strPath.c_str(), 1);
    CConfigFile aConfig;
    aConfig.Load();
    unsetenv("TALVEN_DEBUG_VOLUME");
    CGpuConfig::GetInstance()->SelectDevices(aConfig, {1000, 1000, 1000});
    ASSERT_TRUE(CReconMain::SaveVol());

    std::ifstream aFile(strPath, std::ios::binary);
    std::int32_t aiHeader[4] = {};
    std::vector<float> vfVolume(m_aStart.vfVolume.size() + 1);
    aFile.read(reinterpret_cast<char*>(aiHeader), sizeof aiHeader);
    EXPECT_EQ(std::vector(aiHeader, aiHeader + 4),
              (std::vector{m_aJob.iVolX, m_aJob.iY, m_aJob.iVolZ, 2}));
    aFile.seekg(132096);
    aFile.read(reinterpret_cast<char*>(vfVolume.data()), std::streamsize(4 * vfVolume.size()));
    vfVolume.resize(std::size_t(aFile.gcount()) / 4);
    EXPECT_EQ(vfVolume, m_aStart.vfVolume);
    std::remove(strPath.c_str());
}

TEST_F(JobMain, WhatCannotRunIsRefused)
{
    EXPECT_EQ(mReconstruct(), "there are no projections");
    constexpr float fNan = std::numeric_limits<float>::quiet_NaN();
    struct Case
    {
        const char* pcReason;
        std::function<void()> aChange;
    };
    const Case aCases[] = {
        {"the stack has 10 rows, the volume 9",
         [] { CVolData::GetInstance()->GetVolume()->SetSize(37, 9, 13); }},
        {"there is no volume", [] { CVolData::GetInstance()->GetVolume()->DeleteVolume(); }},
        {"the volume has 65536 slices, at most 65535",
         [] { CVolData::GetInstance()->GetVolume()->SetSize(1, 10, 65536); }},
        {"no projection is selected", [] { mSelect({}); }},
        {"projection 7 is selected, the stack has 7",
         [] {
             mSelect({1, 7});
         }},
        {"1 iterations of 0 subsets", [] { mSetOptions(1, 1, {}, {}); }},
        {"0 iterations of 1 subsets", [] { mSetOptions(2, 0, {7}, {}); }},
        {"relaxation factor 1 is nan",
         [=] {
             mSetOptions(1, 2, {7}, {1, fNan});
         }},
        {"the weight box is at (0, 0) with half size (nan, 1)",
         [=] {
             mSetBox({{0, 0}, {fNan, 1}});
         }},
        {"value 3 of the smoothing kernel is inf",
         []
         {
             mSetOptions(1, 1, {7}, {1});
             mSetKernel(1, {1, 1, 5}, {1, 1, 1, std::numeric_limits<float>::infinity(), 1});
         }},
        {"all values of the smoothing kernel are 0",
         []
         {
             mSetOptions(2, 1, {7}, {1});
             mSetKernel(1, {2, 1, 1}, {0, 0});
         }},
        {"the weight box is at (0, 0) with half size (3e+38, 1)",
         [] {
             mSetBox({{0, 0}, {3e38f, 1}});
         }},
    };
    for (const Case& rCase : aCases)
    {
        SCOPED_TRACE(rCase.pcReason);
        mUpload();
        mSetOptions(0, 0, {}, {});
        mSetBox({{0, 0}, {18, 6}});
        ASSERT_EQ(mReconstruct(), "");
        rCase.aChange();
        EXPECT_EQ(mReconstruct(), rCase.pcReason);
    }
    m_aJob.vfAngles[3] = fNan;
    mUpload();
    mSetBox({{0, 0}, {18, 6}});
    EXPECT_EQ(mReconstruct(), "the angle of projection 3 is nan");
}

// The first reason counts, and the workers that would wait for the failed one are released.
TEST_F(JobMain, FailureOfOneWorker)
{
    mUpload();
    CJobStatus::Reset();
    const std::string strReason = mRunWorkers(
        [](int i)
        {
            if (i == 1)
                CJobStatus::Fail("no memory");
            else if (!CVolData::GetInstance()->GetTomoVolume()->Rendezvous())
                CJobStatus::Fail("gave up");
        });
    EXPECT_EQ(strReason, "no memory");
    EXPECT_TRUE(CJobStatus::HasFailed());

    ASSERT_EQ(mReconstruct(), "");
    EXPECT_FALSE(CJobStatus::HasFailed());
}
