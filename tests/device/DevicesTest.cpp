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
    constexpr const char* pcEcc = "uncorrectable ECC error encountered";
    for (const auto& [pcCall, eError, pcReason] :
         {std::tuple{"cudaGetDeviceProperties", cudaErrorECCUncorrectable, pcEcc},
          {"cudaSetDevice", cudaErrorECCUncorrectable, pcEcc},
          {"cudaMemGetInfo", cudaErrorECCUncorrectable, pcEcc},
          {"cudaFuncGetAttributes", cudaErrorECCUncorrectable, pcEcc},
          {"cudaFuncGetAttributes", cudaErrorNoKernelImageForDevice,
           "no kernel of this build is for compute capability 9.0"}})
    {
        SoftCuda::Reset();
        SoftCuda::FailNext(pcCall, eError, 1);
        const std::string strLeftOut = "GPU 1 is left out: " + std::string(pcReason);
        EXPECT_EQ(Make("cuda", 3), "cuda (2 x software device 0; " + strLeftOut + "), asked for");
        CDeviceInfo aInfo;
        aInfo.Query();
        for (int i = 0; i < 3; ++i)
        {
            EXPECT_EQ(aInfo.GetDeviceMemory(i), i == 1 ? 0 : 1024) << pcCall;
            EXPECT_EQ(GetBackend()->SelectDevice(i), i != 1) << pcCall;
        }
        EXPECT_FALSE(GetBackend()->SelectDevice(1));
        EXPECT_EQ(TakeDeviceError(), strLeftOut);
        SetBackend(nullptr);
        SoftCuda::FailNext(pcCall, eError);
        EXPECT_EQ(Make("cuda", 1), "cuda: GPU 0 is left out: " + std::string(pcReason));
    }
}

TEST_F(SoftCudaDevices, ThatAreLeftToOthersAreNotTouched)
{
    SoftCuda::FailNext("cudaSetDevice", cudaErrorUnknown);
    std::string strReason;
    ASSERT_TRUE(MakeBackend("cuda", strReason, {.uiBusy = 0b1111}));
    EXPECT_EQ(strReason, "cuda (4 x software device 0), asked for");
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
