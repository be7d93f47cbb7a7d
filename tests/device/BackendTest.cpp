// Choice of the host backend and its devices.

#include "gpulib/Device/DeviceCtx.h"
#include "gpulib/Device/DeviceInfo.h"
#include "tests/device/Rig.h"

TEST(Backend, IsChosenByName)
{
    std::string strNoCuda;
    if (MakeCudaBackend(false, 0, strNoCuda)) GTEST_SKIP() << "this machine has a GPU";
    const std::string strBest = "host (" + GetHostInstructionSets().front() + "), ";
    for (const auto& [pcWanted, bThere, strExpected] :
         {std::tuple{"", true, strBest + strNoCuda},
          {"auto", true, strBest + strNoCuda},
          {"host", true, strBest + "asked for"},
          {"cuda", false, "cuda: " + strNoCuda},
          {"cuda-exact", false, "cuda-exact: " + strNoCuda},
          {"Host", false, "unknown backend \"Host\", must be"}})
    {
        std::string strReason;
        EXPECT_EQ(MakeBackend(pcWanted, strReason) != nullptr, bThere);
        EXPECT_TRUE(strReason.starts_with(strExpected)) << strReason;
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
    EXPECT_EQ(pBackend->GetPieceRows(1 << 14, 9), 1);
    EXPECT_EQ(pBackend->GetPieceRows(1 << 12, 9), 4);
    EXPECT_EQ(pBackend->GetPieceRows(1, 9), 9);
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
