#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceArray2D.h"
#include "gpulib/Device/DeviceError.h"
#include "gpulib/Device/PitchedPtr2D.h"
#include "tests/backends/Backends.h"

/// Host values of an image for some rows: [row][y][x].
struct Image
{
    int iWidth = 0, iHeight = 0, iRows = 1;
    std::vector<float> vf;

    Image(int iW, int iH, int iR) : iWidth(iW), iHeight(iH), iRows(iR), vf(Size()) {}
    std::size_t Size() const { return std::size_t(iWidth) * iHeight * iRows; }
    float& At(int r, int y, int x) { return vf[(std::size_t(r) * iHeight + y) * iWidth + x]; }
    float At(int r, int y, int x) const { return const_cast<Image*>(this)->At(r, y, x); }
    /// The rows [iFirst, iFirst + iCount).
    Image Rows(int iFirst, int iCount) const
    {
        Image aPart(iWidth, iHeight, iCount);
        aPart.vf.assign(vf.begin() + std::size_t(iFirst) * iWidth * iHeight,
                        vf.begin() + std::size_t(iFirst + iCount) * iWidth * iHeight);
        return aPart;
    }
    HostRows<float> Borrow()
    {
        return {vf.data(), std::size_t(iWidth), std::size_t(iWidth) * iHeight, iRows};
    }
    HostRows<const float> Borrow() const
    {
        return {vf.data(), std::size_t(iWidth), std::size_t(iWidth) * iHeight, iRows};
    }
};

inline Image RandomImage(int iWidth, int iHeight, int iRows, float fLow, float fHigh, int iSeed = 1)
{
    Image aImage(iWidth, iHeight, iRows);
    std::mt19937 aEngine(iSeed);
    std::uniform_real_distribution<float> aValues(fLow, fHigh);
    for (float& rValue : aImage.vf) rValue = aValues(aEngine);
    return aImage;
}

/// The arrays of one device that the kernels work on.
struct Rig
{
    CDeviceArray2D aVol, aRaw, aProjs, aCosSin, aIndex, aRange;
    CPitchedPtr2D aSums, aOut;
    std::vector<float> vfCos, vfSin;

    Rig() { EXPECT_TRUE(GetBackend()->SelectDevice(0)); }

    void SetAngles(const std::vector<double>& rDegrees)
    {
        for (const double dAngle : rDegrees)
        {
            vfCos.push_back(float(std::sin((90 - dAngle) * M_PI / 180)));
            vfSin.push_back(float(std::sin(dAngle * M_PI / 180)));
        }
        aCosSin.SetChannels(2);
        ASSERT_TRUE(aCosSin.Create(int(rDegrees.size()), 1));
        ASSERT_TRUE(aCosSin.HostToDevice(vfCos.data(), vfSin.data()));
    }
    void SetIndex(const std::vector<unsigned>& rIndex)
    {
        aIndex.SetUInt();
        ASSERT_TRUE(aIndex.Create(int(rIndex.size()), 1));
        ASSERT_TRUE(aIndex.HostToDevice(rIndex.data()));
    }
    /// An array for a batch, with a frame of iFrame zeros around the image.
    static void Fill(CDeviceArray2D& rArray, const Image& rImage, int iFrame = 0)
    {
        rArray.SetLanes(rImage.iRows);
        ASSERT_TRUE(rArray.Create(rImage.iWidth + 2 * iFrame, rImage.iHeight + 2 * iFrame));
        ASSERT_TRUE(
            rArray.HostToDevice(rImage.Borrow(), iFrame, iFrame, rImage.iWidth, rImage.iHeight));
    }
    static void Fill(CPitchedPtr2D& rBuffer, const Image& rImage)
    {
        rBuffer.SetLanes(rImage.iRows);
        ASSERT_TRUE(rBuffer.Create(rImage.iWidth, rImage.iHeight));
        ASSERT_TRUE(GetBackend()->Upload(rBuffer.GetImage(), rImage.Borrow(), 0, 0, rImage.iWidth,
                                         rImage.iHeight));
    }
    static Image Read(const CPitchedPtr2D& rBuffer, int iRows)
    {
        Image aImage(rBuffer.GetImage().iWidth, rBuffer.GetImage().iHeight, iRows);
        EXPECT_TRUE(rBuffer.ToHost(aImage.Borrow()));
        return aImage;
    }
};

/// |a - b| / |b| over all values; NaN when one is NaN.
inline double RelativeError(std::span<const float> vfGot, std::span<const double> vdExpected)
{
    double dError = 0, dNorm = 0;
    for (std::size_t i = 0; i < vdExpected.size(); ++i)
    {
        dError += (vfGot[i] - vdExpected[i]) * (vfGot[i] - vdExpected[i]);
        dNorm += vdExpected[i] * vdExpected[i];
    }
    return dNorm > 0 ? std::sqrt(dError / dNorm) : std::sqrt(dError);
}

inline bool SameBits(const std::vector<float>& rA, const std::vector<float>& rB)
{
    return rA.size() == rB.size() && std::memcmp(rA.data(), rB.data(), rA.size() * 4) == 0;
}

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
};
