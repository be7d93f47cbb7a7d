// Devices that are not there, cannot be used or cannot be opened; and what the clock sees of one.

#include <gtest/gtest.h>

#include <tuple>

#include "gpulib/Device/Backend.h"
#include "gpulib/Device/Cuda/CudaClock.h"
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
    ~SoftCudaDevices() override
    {
        SetBackend(nullptr);
        EXPECT_EQ(SoftCuda::g_iHeld, 0);
        SoftCuda::Reset();
        TakeDeviceError();
    }
    static std::string Make(const char* pcWanted, int iDevices)
    {
        std::string strReason;
        SetBackend(nullptr);
        SoftCuda::g_aSettings.iDevices = iDevices;
        SetBackend(MakeBackend(pcWanted, strReason));
        return strReason;
    }
};
}  // namespace

TEST_F(SoftCudaDevices, DecideOnTheBackend)
{
    for (const auto& [iDevices, pcWanted, pcExpected] :
         {std::tuple{-1, "auto", "), no CUDA driver"},
          {0, "auto", "), no CUDA device"},
          {2, "auto", "cuda (2 x software device 0), found"},
          {1, "cuda", "cuda (software device 0), asked for"}})
        EXPECT_NE(Make(pcWanted, iDevices).find(pcExpected), std::string::npos) << pcExpected;
}

TEST_F(SoftCudaDevices, ThatCannotBeUsedKeepTheirNumbers)
{
    SoftCuda::g_aSettings.iCapability = 70;
    SoftCuda::FailNext("cudaGetDeviceProperties", cudaErrorECCUncorrectable, 2);
    EXPECT_EQ(Make("cuda", 4),
              "cuda (2 x software device 1; GPU 0 is left out: compute capability 7.0, 7.5 is "
              "needed; GPU 2 is left out: uncorrectable ECC error encountered), asked for");
    CDeviceInfo aInfo;
    aInfo.Query();
    EXPECT_EQ(aInfo.GetNumDevices() * aInfo.GetDeviceMemory(1) - aInfo.GetDeviceMemory(2), 4096);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(GetBackend()->SelectDevice(i), i % 2 == 1) << i;
    EXPECT_EQ(Make("cuda", 1), "cuda: GPU 0 is left out: compute capability 7.0, 7.5 is needed");
}

TEST_F(SoftCudaDevices, ThatCouldNotBeOpenedFailWhatTheyAreAskedFor)
{
    Make("cuda", 1);
    CBackend& rBackend = *GetBackend();
    SoftCuda::FailNext("cudaMallocHost", cudaErrorMemoryAllocation, 1);
    testing::internal::CaptureStdout();
    CDeviceCtx().SetDevice(0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Error: Unable to set the device: 0\n"
              "Info: GPU 0: pin 4 MiB: out of memory (cudaErrorMemoryAllocation).\n");
    float afValues[4] = {};
    DeviceImage aImage;
    aImage.iWidth = aImage.iHeight = 2;
    aImage.pvData = afValues;
    EXPECT_TRUE(rBackend.FinishDownload()) << "a band without rows asks for nothing else";
    EXPECT_FALSE(rBackend.Clear(aImage));
    EXPECT_EQ(TakeDeviceError(), "device 0 is not open") << "and not why it is not";
    EXPECT_FALSE(
        rBackend.Copy(aImage, aImage) || rBackend.Upload(aImage, {afValues, 2, 4, 1}, 0, 0, 2, 2) ||
        rBackend.Download(aImage, {afValues, 2, 4, 1}, 0, 0, 2, 2) ||
        rBackend.UploadTable(aImage, afValues) || rBackend.DownloadTable(aImage, afValues));
    TakeDeviceError();
    CDeviceArray2D aArray;
    SoftCuda::FailNext("cudaSetDevice", cudaErrorUnknown);
    EXPECT_FALSE(aArray.Create(2, 2));
    EXPECT_EQ(TakeDeviceError(), "select device 0: unknown error (cudaErrorUnknown)");
    EXPECT_TRUE(aArray.Create(2, 2)) << "it can be opened now";
}

TEST_F(SoftCudaDevices, TellAClockWhatTheyDo)
{
    Make("cuda", 1);
    std::vector<float> vfValues(6 * 20);
    CDeviceArray2D aArray;
    aArray.SetLanes(4);
    CCudaClock aClock;
    CCudaClock::Totals aTotals;
    ASSERT_TRUE(aArray.Create(5, 6) &&
                aArray.HostToDevice({vfValues.data(), 20, 5, 4}, 0, 0, 5, 6));
    EXPECT_EQ(SoftCuda::g_iLaunches, 0) << "nothing has asked for what the kernels do";
    ASSERT_TRUE(aArray.ToHost({vfValues.data(), 20, 5, 4}, 0, 0, 5, 6) && aClock.Take(aTotals));
    std::string strSeen;
    for (const auto& [strName, rTotal] : aTotals)
        if (rTotal.dSeconds > 0) strSeen += std::to_string(rTotal.iCount) + " " + strName + ", ";
    EXPECT_EQ(strSeen,
              "1 copy to the device, 1 copy to the host, 1 download, 1 pack, 1 unpack, 1 upload, "
              "2 wait, ");
}
