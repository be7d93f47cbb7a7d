#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <deque>
#include <random>
#include <string>
#include <vector>

#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceArray2D.h"
#include "gpulib/Device/DeviceError.h"
#include "gpulib/Device/PitchedPtr2D.h"
#include "tests/backends/Backends.h"
#include "tests/oracle/JobOracle.h"

// The values of a batch are images [row of the batch][y][x].

inline HostRows<const float> Borrow(const Images& rImages)
{
    return {rImages.vf.data(), std::size_t(rImages.iX), rImages.GetPixels(), rImages.iN};
}
inline HostRows<float> Borrow(Images& rImages)
{
    return {rImages.vf.data(), std::size_t(rImages.iX), rImages.GetPixels(), rImages.iN};
}

inline Images RandomImages(int iX, int iY, int iN, float fLow, float fHigh, unsigned uiSeed = 1)
{
    Images aImages(iX, iY, iN);
    std::mt19937 aEngine(uiSeed);
    std::uniform_real_distribution<float> aValues(fLow, fHigh);
    for (float& rfValue : aImages.vf) rfValue = aValues(aEngine);
    return aImages;
}

/// The images [iFirst, iFirst + iCount).
inline Images Part(const Images& rImages, int iFirst, int iCount)
{
    Images aPart(rImages.iX, rImages.iY, iCount);
    std::copy_n(rImages.vf.begin() + std::ptrdiff_t(iFirst * rImages.GetPixels()), aPart.vf.size(),
                aPart.vf.begin());
    return aPart;
}

inline bool SameBits(const std::vector<float>& rA, const std::vector<float>& rB)
{
    return rA.size() == rB.size() && std::memcmp(rA.data(), rB.data(), rA.size() * 4) == 0;
}

/// Device images of host values; they live as long as the rig.
class CRig
{
public:
    CRig() { EXPECT_TRUE(GetBackend()->SelectDevice(0)); }

    /// What kernels sample, with iFrame zeros around each image.
    DeviceImage Array(const Images& rImages, int iFrame = 0)
    {
        CDeviceArray2D& rArray = m_vArrays.emplace_back();
        rArray.SetLanes(rImages.iN);
        EXPECT_TRUE(rArray.Create(rImages.iX + 2 * iFrame, rImages.iY + 2 * iFrame) &&
                    rArray.HostToDevice(Borrow(rImages), iFrame, iFrame, rImages.iX, rImages.iY));
        return rArray.GetImage();
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
        rArray.SetUInt();
        EXPECT_TRUE(rArray.Create(int(rList.size()), 1) && rArray.HostToDevice(rList.data()));
        return rArray.GetImage();
    }
    DeviceImage Lent(const Images& rImage)
    {
        CDeviceArray2D& rArray = m_vArrays.emplace_back();
        EXPECT_TRUE(rArray.CreateLent(rImage.vf.data(), rImage.iX, rImage.iY));
        return rArray.GetImage();
    }
    /// What kernels write.
    DeviceImage Buffer(const Images& rImages)
    {
        CPitchedPtr2D& rBuffer = m_vBuffers.emplace_back();
        rBuffer.SetLanes(rImages.iN);
        EXPECT_TRUE(rBuffer.Create(rImages.iX, rImages.iY) &&
                    GetBackend()->Upload(rBuffer.GetImage(), Borrow(rImages), 0, 0, rImages.iX,
                                         rImages.iY));
        return rBuffer.GetImage();
    }
    DeviceImage Doubles(int iWidth, int iHeight)
    {
        CPitchedPtr2D& rBuffer = m_vBuffers.emplace_back();
        rBuffer.SetDouble();
        EXPECT_TRUE(rBuffer.Create(iWidth, iHeight));
        return rBuffer.GetImage();
    }
    static Images Read(const DeviceImage& rImage, int iRows)
    {
        Images aImages(rImage.iWidth, rImage.iHeight, iRows);
        EXPECT_TRUE(GetBackend()->Download(rImage, Borrow(aImages), 0, 0, aImages.iX, aImages.iY));
        return aImages;
    }

private:
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
    }
    void TearDown() override
    {
        EXPECT_EQ(TakeDeviceError(), "");
        SetBackend(nullptr);
    }
    /// Whether the texture unit interpolates, with weights of 8 bits.
    static bool mFilters() { return GetParam() == "cuda"; }
};
