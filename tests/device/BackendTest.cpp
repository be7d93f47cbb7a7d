// Choice of the backend, its devices, drivers that refuse, and work shared by several cores.

#include <algorithm>
#include <atomic>
#include <thread>

#include "gpulib/Device/DeviceCtx.h"
#include "gpulib/Device/DeviceInfo.h"
#include "gpulib/Device/GBackProj.h"
#include "gpulib/Device/GForwardProj.h"
#include "gpulib/Device/GRFactor.h"
#include "gpulib/Device/GWeightProjs.h"
#include "gpulib/Device/Host/HostBackend.h"
#include "tests/device/Rig.h"

TEST(Backend, IsChosenByName)
{
    std::string strNoCuda;
    if (MakeCudaBackend(false, 0, strNoCuda)) GTEST_SKIP() << "this machine has a GPU";
    const std::string strBest = "host (" + GetHostInstructionSets().front() + "), ";
    struct Choice
    {
        const char* pcWanted;
        bool bThere;
        std::string strReason;
    };
    for (const Choice& rChoice : {Choice{"", true, strBest + strNoCuda},
                                  {"auto", true, strBest + strNoCuda},
                                  {"host", true, strBest + "asked for"},
                                  {"cuda", false, "cuda: " + strNoCuda},
                                  {"cuda-exact", false, "cuda-exact: " + strNoCuda},
                                  {"Host", false, "unknown backend \"Host\", must be"}})
    {
        std::string strReason;
        EXPECT_EQ(MakeBackend(rChoice.pcWanted, strReason) != nullptr, rChoice.bThere);
        EXPECT_TRUE(strReason.starts_with(rChoice.strReason)) << strReason;
    }
    EXPECT_EQ(MakeHostBackend("mmx", 1), nullptr);
    EXPECT_EQ(GetHostInstructionSets().back(), "baseline");
}

TEST(Backend, BoundsBatches)
{
    const auto pBackend = MakeHostBackend("", 3, 5);
    EXPECT_EQ(pBackend->GetDeviceCount(), 3);
    EXPECT_EQ(pBackend->GetDeviceMemory(3), 0u);
    const std::size_t tMemory = pBackend->GetDeviceMemory(0);
    EXPECT_GT(tMemory, 0u);
    EXPECT_EQ(pBackend->GetBatchRows(100, 1000), 5);
    EXPECT_EQ(pBackend->GetBatchRows(3, 1000), 3);
    EXPECT_EQ(pBackend->GetBatchRows(100, tMemory), 1);
    EXPECT_EQ(MakeHostBackend("", 1)->GetBatchRows(100, 1000), 16);
    EXPECT_EQ(MakeHostBackend("", 1)->GetBatchRows(500, 1000), 32);
}

TEST(Backend, DevicesAreReportedAndSelected)
{
    CDeviceCtx aCtx;
    CDeviceInfo aInfo;
    aInfo.Query();
    EXPECT_EQ(aInfo.GetNumDevices(), 0);
    testing::internal::CaptureStdout();
    aCtx.SetDevice(0);
    SetBackend(MakeHostBackend("", 2));
    aCtx.SetDevice(2);
    EXPECT_EQ(aCtx.GetDevice(), -1);
    aCtx.SetDevice(1);
    EXPECT_EQ(aCtx.GetDevice(), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Error: No Cuda graphics card found.\nError: Invalid device ID: 2\n");
    aInfo.Query();
    EXPECT_EQ(aInfo.GetNumDevices(), 2);
    EXPECT_GT(aInfo.GetDeviceMemory(1), 0);
    EXPECT_EQ(aInfo.GetDeviceMemory(2), 0);
    EXPECT_EQ(aInfo.GetTotalMemory(), 2 * aInfo.GetDeviceMemory(0));
    SetBackend(nullptr);
}

TEST(Drivers, RefuseWhatDoesNotFit)
{
    SetBackend(MakeHostBackend("", 1));
    {
        Rig aRig;
        aRig.SetAngles({0, 10});
        aRig.SetIndex({0, 5});  // 5 is no projection
        Rig::Fill(aRig.aVol, Image(8, 4, 4), 1);
        Rig::Fill(aRig.aRaw, Image(8, 2, 4));
        Rig::Fill(aRig.aProjs, Image(8, 2, 4));
        Rig::Fill(aRig.aSums, Image(8, 2, 4));
        Rig::Fill(aRig.aOut, Image(8, 2, 1));
        aRig.aRange.SetChannels(2);
        ASSERT_TRUE(aRig.aRange.Create(6, 2));
        CPitchedPtr2D aAccum;
        aAccum.SetDouble();
        ASSERT_TRUE(aAccum.Create(2, 3));

        const auto Forward = [&](int iX, int iFirst, int iEnd)
        {
            GForwardProj aForward;
            aForward.SetVolSize(iX, 4);
            aForward.SetProjX(8);
            aForward.SetSetRange(iFirst, iEnd);
            aForward.SetProjIndexArray(aRig.aIndex.GetImage());
            aForward.SetCosSinArray(aRig.aCosSin.GetImage());
            aForward.SetVolArray(aRig.aVol.GetImage());
            return aForward.DoIt(aRig.aSums.GetImage());
        };
        const auto Back = [&](int iFirst, int iEnd, int iY, int iRows)
        {
            GBackProj aBack;
            aBack.SetVolSize(8, 4);
            aBack.SetProjSize(8);
            aBack.SetSetRange(iFirst, iEnd);
            aBack.SetProjIndexArray(aRig.aIndex.GetImage());
            aBack.SetCosSinArray(aRig.aCosSin.GetImage());
            aBack.SetRangeXArray(aRig.aRange.GetImage());
            aBack.SetProjsArray(aRig.aProjs.GetImage());
            aBack.SetVolArray(aRig.aVol.GetImage());
            return aBack.DoIt(iY, iRows);
        };
        const auto Sum = [&](int iProjs, int iIter, int iRows)
        {
            GRFactor aSum;
            aSum.SetProjSize(8, iProjs);
            aSum.SetProjIndexArray(aRig.aIndex.GetImage());
            aSum.SetProjsArray(aRig.aProjs.GetImage());
            return aSum.DoDif(aAccum.GetImage(), iIter, iRows);
        };
        const auto Weight = [&](const DeviceImage& rOut, int iFirst, int iEnd)
        {
            GWeightProjs aWeight;
            aWeight.SetProjSize(8);
            aWeight.SetSetRange(iFirst, iEnd);
            aWeight.SetRawProjsArray(aRig.aRaw.GetImage());
            return aWeight.NoWeightRef(rOut);
        };
        const DeviceImage &rGood = aRig.aSums.GetImage(), &rOneRow = aRig.aOut.GetImage();
        EXPECT_TRUE(Forward(8, 0, 1) && Forward(8, 1, 0) && Back(0, 1, 2, 4) && Back(1, 1, 0, 4) &&
                    Sum(1, 2, 4) && Weight(rGood, 0, 2))
            << TakeDeviceError();
        EXPECT_FALSE(Forward(8, 0, 2)) << "projection 5";
        EXPECT_FALSE(Forward(8, 0, 3)) << "beyond the list";
        EXPECT_FALSE(Forward(8, -1, 1));
        EXPECT_FALSE(Forward(9, 0, 1)) << "slice too small";
        EXPECT_FALSE(Forward(0, 0, 1));
        EXPECT_FALSE(Back(0, 2, 0, 4)) << "projection 5";
        EXPECT_FALSE(Back(0, 1, 3, 4)) << "rows beyond the ranges";
        EXPECT_FALSE(Back(0, 1, -1, 4));
        EXPECT_FALSE(Back(0, 1, 0, 5)) << "more rows than lanes";
        EXPECT_FALSE(Sum(2, 0, 4)) << "projection 5";
        EXPECT_FALSE(Sum(1, 3, 4)) << "iteration beyond the accumulators";
        EXPECT_FALSE(Weight(rGood, 0, 3));
        EXPECT_FALSE(Weight(rOneRow, 0, 2)) << "batches of different sizes";
        EXPECT_EQ(TakeDeviceError(), "ForwardProject: projection 5 of 2")
            << "the first reason stays";
    }
    SetBackend(nullptr);
}

namespace
{
/// Projects or back projects random rows on a backend.
std::vector<float> ProjectOn(std::unique_ptr<CBackend> pBackend, bool bBack)
{
    SetBackend(std::move(pBackend));
    std::vector<float> vfResult;
    {
        Rig aRig;
        aRig.SetAngles({-50, -10, 5, 33, 70});
        aRig.SetIndex({0, 1, 2, 3, 4});
        Rig::Fill(aRig.aVol, RandomImage(70, 80, 3, 0, 1), 1);
        Rig::Fill(aRig.aProjs, RandomImage(60, 5, 3, 0, 1));
        Rig::Fill(aRig.aSums, Image(60, 5, 3));
        aRig.aRange.SetChannels(2);
        const std::vector<float> vfLow(15, 0), vfHigh(15, 60);
        EXPECT_TRUE(aRig.aRange.Create(3, 5) &&
                    aRig.aRange.HostToDevice(vfLow.data(), vfHigh.data()));
        GForwardProj aForward;
        aForward.SetVolSize(70, 80);
        aForward.SetProjX(60);
        aForward.SetSetRange(0, 5);
        aForward.SetProjIndexArray(aRig.aIndex.GetImage());
        aForward.SetCosSinArray(aRig.aCosSin.GetImage());
        aForward.SetVolArray(aRig.aVol.GetImage());
        GBackProj aBack;
        aBack.SetVolSize(70, 80);
        aBack.SetProjSize(60);
        aBack.SetSetRange(0, 5);
        aBack.SetProjIndexArray(aRig.aIndex.GetImage());
        aBack.SetCosSinArray(aRig.aCosSin.GetImage());
        aBack.SetRangeXArray(aRig.aRange.GetImage());
        aBack.SetProjsArray(aRig.aProjs.GetImage());
        aBack.SetVolArray(aRig.aVol.GetImage());
        EXPECT_TRUE(bBack ? aBack.DoIt(0, 3) : aForward.DoIt(aRig.aSums.GetImage()));
        Image aOut(bBack ? 70 : 60, bBack ? 80 : 5, 3);
        EXPECT_TRUE(bBack ? aRig.aVol.ToHost(aOut.Borrow(), 1, 1, 70, 80)
                          : aRig.aSums.ToHost(aOut.Borrow()));
        vfResult = aOut.vf;
    }
    SetBackend(nullptr);
    return vfResult;
}

std::unique_ptr<CBackend> MakeTeam(int iCores)
{
    return std::make_unique<CHostBackend>(Baseline::g_aKernels, 1, iCores, 0);
}
}  // namespace

TEST(Team, SplitsTheWorkWithoutAChangeOfBits)
{
    for (const bool bBack : {false, true})
        for (const int iCores : {2, 3, 8})
            EXPECT_TRUE(SameBits(ProjectOn(MakeTeam(iCores), bBack), ProjectOn(MakeTeam(1), bBack)))
                << iCores << " cores, back projection " << bBack;
}

TEST(InstructionSets, WithFusedLanesAgreeBitForBit)
{
    std::vector<std::vector<float>> vvfSums;
    for (const std::string& rSet : GetHostInstructionSets())
        if (rSet != "baseline") vvfSums.push_back(ProjectOn(MakeHostBackend(rSet, 1), false));
    if (vvfSums.size() < 2) GTEST_SKIP() << "needs AVX2 and AVX-512";
    EXPECT_TRUE(SameBits(vvfSums[0], vvfSums[1]));
}
