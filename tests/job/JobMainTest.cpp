#include <gtest/gtest.h>

#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <thread>

#include "Util/TomoVolume.h"
#include "Util/Util_Memory.h"
#include "Util/Util_Volume.h"
#include "gpulib/App/JobShape.h"
#include "gpulib/App/Smooth/TomoSmooth.h"
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
#include "server/Recon/GaussianKernel.h"
#include "server/Thread/BandSplit.h"
#include "server/Thread/ProjMain.h"
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

/// Hands a message to the holder that serves it.
template <class T>
void Upload(CRequestPlan (T::*pfnHandler)(const CRemotePacket&), const CRemotePacket& rPacket)
{
    std::string strReason;
    EXPECT_TRUE((T::GetInstance()->*pfnHandler)(rPacket).DoIt(rPacket, strReason)) << strReason;
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
        Upload(&CProjData::HandleProjSize, MakePacket({unsigned(m_aJob.iProjX), unsigned(m_aJob.iY),
                                                       unsigned(m_aJob.vfAngles.size())},
                                                      vfPairs));
        Upload(&CVolData::HandleVolSize,
               MakePacket({unsigned(m_aJob.iVolX), unsigned(m_aJob.iY), unsigned(m_aJob.iVolZ)}));
        std::ranges::copy(m_aStart.vfProjs, CProjData::GetInstance()->GetProjs()->GetData());
        std::ranges::copy(m_aStart.vfVolume, CVolData::GetInstance()->GetVolume()->GetData());
    }

    static void mSetOptions(unsigned uiMethod, unsigned uiIterations,
                            const std::vector<unsigned>& rSizes, const std::vector<float>& rRelax)
    {
        std::vector<float> vfData;
        for (const unsigned uiSize : rSizes) vfData.push_back(std::bit_cast<float>(uiSize));
        vfData.insert(vfData.end(), rRelax.begin(), rRelax.end());
        Upload(&CReconOpt::HandleReconOpt,
               MakePacket({uiMethod, uiIterations, unsigned(rSizes.size()), 0, 0}, vfData));
    }

    static void mSelect(const std::vector<unsigned>& rList)
    {
        std::vector<float> vfData;
        for (const unsigned uiProj : rList) vfData.push_back(std::bit_cast<float>(uiProj));
        Upload(&CSetOp::HandleSetOp, MakePacket({1, unsigned(rList.size())}, vfData));
    }

    static void mSetKernel(unsigned uiInterval, const std::array<int, 3>& rSize,
                           const std::vector<float>& rKernel)
    {
        Upload(&CSmoothOpt::HandleSmoothOpt,
               MakePacket({uiInterval, unsigned(rSize[0]), unsigned(rSize[1]), unsigned(rSize[2])},
                          rKernel));
    }

    static void mSetBox(const OracleBox& rBox)
    {
        Upload(&CWeightOpt::HandleWeightOpt,
               MakePacket({1, 1, Bits(rBox.afCentre[0]), Bits(rBox.afCentre[1]),
                           Bits(rBox.afHalf[0]), Bits(rBox.afHalf[1])}));
    }

    /// Runs a job on every worker to its end; \return the reason of a refusal or failure
    static std::string mRunJob(CJobMain&& rJob)
    {
        std::string strReason;
        if (!rJob.Prepare(strReason)) return strReason;
        rJob.CalcSubsetDim(g_iWorkers);
        std::vector<std::thread> vThreads;
        for (int i = 0; i < g_iWorkers; ++i) vThreads.emplace_back([&, i] { rJob.DoIt(i, i); });
        for (std::thread& rThread : vThreads) rThread.join();
        const bool bDone = rJob.Finish(strReason);
        EXPECT_EQ(bDone, strReason.empty());
        return strReason;
    }
    static std::string mReconstruct() { return mRunJob(CReconMain()); }

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

// Without options: plain back projection without weights, even where SETOP was not used.
TEST_F(JobMain, DefaultsBackProject)
{
    mUpload();
    ASSERT_EQ(mReconstruct(), "");
    m_aJob.eMethod = EMethod::eBackProj;
    EXPECT_LE(RelativeError(mGetVolume(), RunOracle(m_aJob, m_aStart).vfVolume), 2e-5);
    EXPECT_TRUE(CRfactor::GetInstance()->GetNthIteration(0).empty());
}

// The box defaults to the whole volume, the single subset is cut at the end of the list.
TEST_F(JobMain, DefaultsOfIterations)
{
    m_aJob.vuiList = {5, 2, 3};
    m_aJob.aBox = OracleBox{{0, 0}, {18.5f, 6.5f}};
    m_aJob.iIterations = 3;
    for (const auto& [eMethod, uiMethod] : {std::pair{EMethod::eSart, 1U}, {EMethod::eEm, 2U}})
    {
        m_aJob.eMethod = eMethod;
        mUpload();
        mSelect(m_aJob.vuiList);
        mSetOptions(uiMethod, 3, {60}, {1, 1, 1});
        ASSERT_EQ(mReconstruct(), "");
        const TestData aExpected = RunOracle(m_aJob, m_aStart);
        EXPECT_LE(RelativeError(mGetVolume(), aExpected.vfVolume), 1e-4);

        std::vector<double> vdRfactor;  // of all workers together, and of this job alone
        for (short i = 0; i < 3; ++i)
            for (const float fSum : CRfactor::GetInstance()->GetNthIteration(i))
                vdRfactor.push_back(fSum);
        EXPECT_LE(RelativeError(vdRfactor, aExpected.vdRfactor), 1e-4);
    }
}

// The client's kernel smooths the iterations; plain back projection and an interval of 0 leave it
// alone, whatever it holds.
TEST_F(JobMain, SmoothsWithTheKernel)
{
    m_aJob.aBox = OracleBox{{0, 0}, {18.5f, 6.5f}};
    m_aJob.iIterations = 4;
    m_aJob.uiInterval = 2;
    m_aJob.aiKernel = {3, 2, 1};
    m_aJob.vfKernel = {0.1f, 0.2f, 0.1f, 0.2f, 0.3f, 0.1f};
    mUpload();
    mSetOptions(1, 4, {7}, {1, 1, 1, 1});
    mSetKernel(2, m_aJob.aiKernel, m_aJob.vfKernel);
    ASSERT_EQ(mReconstruct(), "");
    EXPECT_LE(RelativeError(mGetVolume(), RunOracle(m_aJob, m_aStart).vfVolume), 1e-4);

    mSetKernel(0, {1, 1, 1}, {NAN});
    EXPECT_EQ(mReconstruct(), "");
    mSetKernel(1, {1, 1, 1}, {NAN});
    mSetOptions(0, 0, {}, {});
    EXPECT_EQ(mReconstruct(), "");
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

TEST(GaussianKernel, FollowsTheFormula)
{
    const std::array<int, 3> aSizes[] = {{1, 1, 1}, {3, 1, 1}, {4, 1, 1}, {7, 5, 6}};
    for (const auto& [iX, iY, iZ] : aSizes)
    {
        SCOPED_TRACE(testing::Message() << iX << " x " << iY << " x " << iZ);
        const float afStd[3] = {1.0f, 0.7f, 2.0f};
        CGaussianKernel aGaussian;
        aGaussian.SetSize(iX, iY, iZ);
        aGaussian.SetStd(afStd);
        aGaussian.Build();
        const auto Bell = [](int i, int iSize, double dStd)
        { return std::exp(-0.5 * (i - iSize / 2) * (i - iSize / 2) / (dStd * dStd)); };
        std::vector<double> vdExpected;
        double dSum = 0;
        for (int z = 0; z < iZ; ++z)
            for (int y = 0; y < iY; ++y)
                for (int x = 0; x < iX; ++x)
                {
                    vdExpected.push_back(Bell(x, iX, 1) * Bell(y, iY, afStd[1]) * Bell(z, iZ, 2));
                    dSum += vdExpected.back();
                }
        const Util_Volume& rKernel = aGaussian.GetKernel();
        ASSERT_EQ(rKernel.GetVoxels(), vdExpected.size());
        for (std::size_t i = 0; i < vdExpected.size(); ++i)
            EXPECT_NEAR(rKernel.GetData()[i] / (vdExpected[i] / dSum), 1, 2e-6);
    }
}

TEST_F(JobMain, ReprojectsTheSelection)
{
    m_aJob.bReproject = true;
    m_aJob.vuiList = {6, 0};
    m_aJob.aBox = OracleBox{{1, 0}, {9, 4}};
    mUpload();
    mSelect(m_aJob.vuiList);
    mSetBox(*m_aJob.aBox);
    ASSERT_EQ(mRunJob(CProjMain()), "");
    const Util_Volume& rStack = *CProjData::GetInstance()->GetProjs();
    const std::vector<float> vfProjs(rStack.GetData(), rStack.GetData() + rStack.GetVoxels());
    EXPECT_LE(RelativeError(vfProjs, RunOracle(m_aJob, m_aStart).vfProjs), 2e-5);
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
        {"the 3 subsets have 4294967296 projections together, at most 4294967295",
         [] {
             mSetOptions(2, 1, {0x7fffffff, 0x7fffffff, 2}, {1, 1, 1});
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

// The uploads, the R-factors, what each worker takes for its band, and the copies for smoothing.
TEST_F(JobMain, MemoryIsAskedForAllWorkers)
{
    mUpload();
    mSetOptions(1, 2, {7}, {1, 1});
    const auto FindNeed = []
    {
        std::string strReason;
        std::size_t tRefused = 0, tServed = std::size_t(1) << 30;
        while (tServed - tRefused > 1)
        {
            const std::size_t tMiddle = (tServed + tRefused) / 2;
            Util_Memory::Assume(tMiddle);
            (CReconMain().Prepare(strReason) ? tServed : tRefused) = tMiddle;
        }
        Util_Memory::Assume(0);
        return tServed;
    };
    ReconJob aJob;
    aJob.pProjs = CProjData::GetInstance()->GetProjs();
    aJob.pTomoVol = CVolData::GetInstance()->GetTomoVolume();
    aJob.uiProjIndex = CSetOp::GetInstance()->GetProjIndex();
    aJob.uiIterations = 2;
    const JobShape aShape(aJob, EJobKind::eIterative);
    const std::size_t tPlain = CProjData::GetInstance()->GetBytes() +
                               CVolData::GetInstance()->GetBytes() + 2 * 7 * 2 * sizeof(double) +
                               2 * aShape.GetWorkerBytes(3) + aShape.GetWorkerBytes(4);
    EXPECT_EQ(FindNeed(), tPlain);
    mSetKernel(1, {3, 1, 1}, {0, 1, 0});
    EXPECT_EQ(FindNeed() - tPlain, CTomoSmooth::GetBytes(aJob.pTomoVol->GetSize(), 3, 3, 0));
}

// The first reason counts, the workers that would wait for the failed one are released, and the
// sums of those that came to their end go. Back projection has none, and leaves those of the job
// before.
TEST_F(JobMain, FailureOfOneWorker)
{
    mUpload();
    mSetOptions(1, 2, {7}, {1, 1});
    mSetKernel(1, {1, 1, 1}, {1});
    ASSERT_EQ(mReconstruct(), "");
    const auto FailsOnThirdDevice = []
    {
        SetBackend(MakeHostBackend("", g_iWorkers - 1));
        const std::string strReason = mReconstruct();
        SetBackend(MakeHostBackend("", g_iWorkers));
        return strReason;
    };
    mSetOptions(0, 0, {}, {});
    EXPECT_EQ(FailsOnThirdDevice(), "device 2 of 2");
    EXPECT_FALSE(CRfactor::GetInstance()->GetNthIteration(1).empty());
    mSetOptions(1, 2, {7}, {1, 1});
    EXPECT_EQ(FailsOnThirdDevice(), "device 2 of 2");
    EXPECT_TRUE(CRfactor::GetInstance()->GetNthIteration(0).empty());
    ASSERT_EQ(mReconstruct(), "");
}

// A device that cannot be used fails no job that has no work for it.
TEST_F(JobMain, WorkersWithoutRowsNeedNoDevice)
{
    m_aJob.iY = 1;
    m_aStart = MakeData(m_aJob, 11);
    mUpload();
    for (const unsigned uiMethod : {0U, 1U})
    {
        mSetOptions(uiMethod, 1, {7}, {1});
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
