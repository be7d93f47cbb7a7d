#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <deque>

#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceArray2D.h"
#include "gpulib/Device/DeviceError.h"
#include "gpulib/Device/PitchedPtr2D.h"
#include "tests/backends/Backends.h"
#include "tests/oracle/JobOracle.h"

// The values of a batch are images [row of the batch][y][x].

inline auto Borrow(auto& rImages)
{
    return HostRows<std::remove_reference_t<decltype(rImages.vf[0])>>{
        rImages.vf.data(), std::size_t(rImages.iX), rImages.GetPixels(), rImages.iN};
}

/// One of the images.
inline Images Part(const Images& rImages, int n)
{
    Images aPart(rImages.iX, rImages.iY, 1);
    std::ranges::copy(rImages.Nth(n), aPart.vf.begin());
    return aPart;
}

/// Device images of host values; they live as long as the rig.
class CRig
{
public:
    /// What kernels sample, with iFrame zeros around each image.
    DeviceImage Array(const Images& rImages, int iFrame = 0)
    {
        m_vArrays.emplace_back().SetLanes(rImages.iN);
        return mFill(m_vArrays.back(), rImages, iFrame);
    }
    /// What is the same for all rows.
    DeviceImage Table(const Images& rImages) { return mFill(m_vArrays.emplace_back(), rImages, 0); }
    /// What kernels write.
    DeviceImage Buffer(const Images& rImages)
    {
        m_vBuffers.emplace_back().SetLanes(rImages.iN);
        return mFill(m_vBuffers.back(), rImages, 0);
    }
    DeviceImage Pairs(int iWidth, const std::vector<float>& rA, const std::vector<float>& rB)
    {
        CDeviceArray2D& rArray = m_vArrays.emplace_back();
        rArray.SetChannels(2);
        EXPECT_TRUE(rArray.Create(iWidth, int(rA.size()) / iWidth) &&
                    rArray.HostToDevice(rA.data(), rB.data()));
        return rArray.GetImage();
    }
    DeviceImage List(const std::vector<unsigned>& rList)
    {
        CDeviceArray2D& rArray = m_vArrays.emplace_back();
        EXPECT_TRUE(rArray.Create(int(rList.size()), 1) && rArray.HostToDevice(rList.data()));
        return rArray.GetImage();
    }
    DeviceImage Doubles(int iWidth, int iHeight)
    {
        m_vBuffers.emplace_back().SetDouble();
        EXPECT_TRUE(m_vBuffers.back().Create(iWidth, iHeight));
        return m_vBuffers.back().GetImage();
    }
    static Images Read(const DeviceImage& rImage, int iRows)
    {
        Images aImages(rImage.iWidth, rImage.iHeight, iRows);
        EXPECT_TRUE(GetBackend()->Download(rImage, Borrow(aImages), 0, 0, aImages.iX, aImages.iY));
        return aImages;
    }

private:
    static DeviceImage mFill(auto& rMemory, const Images& rImages, int iFrame)
    {
        EXPECT_TRUE(rMemory.Create(rImages.iX + 2 * iFrame, rImages.iY + 2 * iFrame) &&
                    rMemory.HostToDevice(Borrow(rImages), iFrame, iFrame, rImages.iX, rImages.iY));
        return rMemory.GetImage();
    }
    std::deque<CDeviceArray2D> m_vArrays;
    std::deque<CPitchedPtr2D> m_vBuffers;
};

/// Runs on every backend of the program.
class Kernel : public testing::TestWithParam<std::string>
{
protected:
    void SetUp() override
    {
        SetBackend(MakeTestBackend(GetParam(), 1));
        if (!GetBackend()) GTEST_SKIP() << "no device for " << GetParam();
        ASSERT_TRUE(GetBackend()->SelectDevice(0));
    }
    void TearDown() override
    {
        EXPECT_EQ(TakeDeviceError(), "");
        SetBackend(nullptr);
    }
};
