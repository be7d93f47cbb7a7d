// Devices that are not there, cannot be used or cannot be opened.

#include <gtest/gtest.h>

#include <thread>
#include <tuple>

#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceArray2D.h"
#include "gpulib/Device/DeviceCtx.h"
#include "gpulib/Device/DeviceError.h"
#include "gpulib/Device/DeviceInfo.h"
#include "tests/softcuda/SoftCuda.h"

namespace
{
class SoftCudaDevices : public testing::Test
{
protected:
    void SetUp() override { SoftCuda::Reset(); }
    void TearDown() override
    {
        SetBackend(nullptr);
        EXPECT_EQ(SoftCuda::GetLiveObjects().GetTotal(), 0);
        SoftCuda::Reset();
        TakeDeviceError();
    }
    static std::string Make(const char* pcWanted)
    {
        std::string strReason;
        SetBackend(nullptr);
        SetBackend(MakeBackend(pcWanted, strReason));
        return strReason;
    }
    static constexpr float afValues[4] = {1, 2, 3, 4};
    static constexpr HostRows<const float> aValues = {afValues, 2, 4, 1};
};
}  // namespace

TEST_F(SoftCudaDevices, DecideOnTheBackend)
{
    for (const auto& [iDevices, pcWanted, pcExpected] :
         {std::tuple{-1, "auto", "), no CUDA driver"},
          {0, "auto", "), no CUDA device"},
          {-1, "cuda", "cuda: no CUDA driver"},
          {2, "auto", "cuda (2 x software device 0), found"},
          {1, "cuda-exact", "cuda (software device 0, exact weights), asked for"},
          {1, "host", "asked for"}})
    {
        SoftCuda::SetDevices(iDevices);
        EXPECT_NE(Make(pcWanted).find(pcExpected), std::string::npos) << Make(pcWanted);
    }
}

TEST_F(SoftCudaDevices, ThatCannotBeUsedKeepTheirNumbers)
{
    SoftCuda::SetDevices(4);
    SoftCuda::SetCapability(70, 0);
    SoftCuda::FailNext("cudaGetDeviceProperties", cudaErrorECCUncorrectable, 2);
    EXPECT_EQ(Make("cuda"),
              "cuda (2 x software device 1; GPU 0 is left out: compute capability 7.0, 7.5 is "
              "needed; GPU 2 is left out: uncorrectable ECC error encountered), asked for");
    CDeviceInfo aInfo;
    aInfo.Query();
    EXPECT_EQ(aInfo.GetNumDevices(), 4);
    for (int i = 0; i < 4; ++i)
    {
        int iDevice = -1;
        EXPECT_EQ(aInfo.GetDeviceMemory(i), i % 2 * 1024) << i;
        EXPECT_EQ(GetBackend()->SelectDevice(i), i % 2 == 1) << i;
        EXPECT_TRUE(i % 2 == 0 || (cudaGetDevice(&iDevice) == cudaSuccess && iDevice == i)) << i;
    }
    SoftCuda::SetDevices(1);
    EXPECT_EQ(Make("cuda"), "cuda: GPU 0 is left out: compute capability 7.0, 7.5 is needed");
}

TEST_F(SoftCudaDevices, ThatCouldNotBeOpenedFailWhatTheyAreAskedFor)
{
    ASSERT_EQ(Make("cuda"), "cuda (2 x software device 0), asked for");
    CDeviceArray2D aKept;  // of the other device
    ASSERT_TRUE(GetBackend()->SelectDevice(0) && aKept.Create(2, 2));
    const auto Worker = [&]
    {
        SoftCuda::FailNext("cudaMallocHost", cudaErrorMemoryAllocation, 1);
        SoftCuda::FailNext("cudaSetDevice", cudaErrorUnknown, 1);
        testing::internal::CaptureStdout();
        CDeviceCtx().SetDevice(1);
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  "Error: Unable to set the device: 1\n"
                  "Info: GPU 1: pin 16 MiB: out of memory (cudaErrorMemoryAllocation).\n");
        CBackend& rBackend = *GetBackend();
        DeviceImage aImage = aKept.GetImage();
        float afBack[4];
        rBackend.Prefetch(aValues, 2, 2);
        EXPECT_TRUE(rBackend.FinishDownload()) << "a band without rows asks for nothing else";
        EXPECT_FALSE(rBackend.Clear(aImage));
        EXPECT_EQ(TakeDeviceError(), "device 1 is not open") << "and not why it is not";
        EXPECT_FALSE(rBackend.Upload(aImage, aValues, 0, 0, 2, 2));
        EXPECT_FALSE(rBackend.Download(aImage, {afBack, 2, 4, 1}, 0, 0, 2, 2));
        EXPECT_FALSE(rBackend.StartDownload(aImage, {afBack, 2, 4, 1}, 0, 0, 2, 2));
        EXPECT_FALSE(rBackend.Copy(aImage, aImage));
        EXPECT_FALSE(rBackend.UploadTable(aImage, afValues));
        EXPECT_FALSE(rBackend.DownloadTable(aImage, afBack));
        TakeDeviceError();
        CDeviceArray2D aArray;
        EXPECT_FALSE(aArray.Create(2, 2));
        EXPECT_EQ(TakeDeviceError(), "select device 1: unknown error (cudaErrorUnknown)");
        EXPECT_TRUE(aArray.Create(2, 2)) << "it can be opened now";
        EXPECT_TRUE(rBackend.Upload(aArray.GetImage(), aValues, 0, 0, 2, 2));
    };
    std::thread(Worker).join();
    EXPECT_FALSE(GetBackend()->Clear(DeviceImage()));
    EXPECT_TRUE(GetBackend()->SelectDevice(0));
    EXPECT_EQ(TakeDeviceError(), "") << "stale";
}
