// The host backend: how it is chosen, its devices and batches.

#include <chrono>
#include <filesystem>
#include <iterator>
#include <thread>

#include "gpulib/Device/DeviceCtx.h"
#include "tests/device/Rig.h"

TEST(Backend, IsChosenByName)
{
    std::string strReason;
    EXPECT_TRUE(MakeBackend("host", strReason));
    EXPECT_EQ(strReason, "host (" + GetHostInstructionSets().front() + "), asked for");
    EXPECT_FALSE(MakeBackend("Host", strReason));
    EXPECT_TRUE(strReason.starts_with("unknown backend \"Host\", must be")) << strReason;
    EXPECT_FALSE(MakeHostBackend("mmx", 1));
    EXPECT_EQ(GetHostInstructionSets().back(), "baseline");
    testing::internal::CaptureStdout();
    CDeviceCtx().SetDevice(0);
    SetBackend(MakeHostBackend("", 2));
    CDeviceCtx().SetDevice(2);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Error: No Cuda graphics card found.\nError: Invalid device ID: 2\n");
    SetBackend(nullptr);
}

TEST(Backend, SharesCoresAmongDevices)
{
    const auto CountThreads = []
    { return int(std::distance(std::filesystem::directory_iterator("/proc/self/task"), {})); };
    std::thread([] {}).join();  // a sanitizer may start a thread of its own beside the first one
    const int iBefore = CountThreads();
    constexpr unsigned uiAll = 0xffff;
    for (const auto& [aWanted, iDevices, iHelpers] : {std::tuple(HostCores{1}, 1, 0),
                                                      {HostCores{3}, 3, 0},
                                                      {HostCores{16}, 16, 0},
                                                      {HostCores{17}, 16, 0},
                                                      {HostCores{24}, 12, 12},
                                                      {HostCores{31}, 15, 15},
                                                      {HostCores{32}, 16, 16},
                                                      {HostCores{40}, 10, 30},
                                                      {HostCores{8, uiAll - 3}, 8, 6},
                                                      {HostCores{40, uiAll - 1}, 10, 39},
                                                      {HostCores{24, uiAll}, 12, 0}})
    {
        SCOPED_TRACE(aWanted.iCores);
        const auto pBackend = MakeHostBackend(aWanted);
        EXPECT_EQ(pBackend->GetDeviceCount(), iDevices);
        // The system lists a thread a little longer than it lives.
        for (int i = 0; i < 500 && CountThreads() - iBefore != iHelpers; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        EXPECT_EQ(CountThreads() - iBefore, iHelpers);
    }
}

TEST(Backend, BoundsBatches)
{
    const auto pBackend = MakeHostBackend("", 3, 5), pFree = MakeHostBackend("", 1);
    EXPECT_EQ(pBackend->GetBatchRows(100, 1000), 5);
    EXPECT_EQ(pBackend->GetBatchRows(3, 1000), 3);
    EXPECT_EQ(pBackend->GetBatchRows(100, pBackend->GetDeviceMemory(0)), 1);
    for (const auto& [iRows, iBatch] : {std::pair{16, 16}, {20, 20}, {33, 32}, {500, 32}})
        EXPECT_EQ(pFree->GetBatchRows(iRows, 1000), iBatch) << iRows;
    const std::size_t tLarge = pFree->GetDeviceMemory(0) / 16 / 31;  // 32 rows: more than a 16th
    EXPECT_EQ(pFree->GetBatchRows(64, tLarge), 16);
    EXPECT_EQ(pFree->GetBatchRows(320, tLarge), 32);
    EXPECT_EQ(pFree->GetPieceRows(1 << 14, 9), 1);
    EXPECT_EQ(pFree->GetPieceRows(1 << 12, 9), 4);
    EXPECT_EQ(pFree->GetPieceRows(1, 9), 9);
}
