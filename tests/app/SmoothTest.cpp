// A volume smoothed in pieces, by one device or by several workers.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "Util/Util_Volume.h"
#include "gpulib/App/Smooth/TomoSmooth.h"
#include "gpulib/App/Smooth/TomoSmoothImpl.h"
#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"
#include "tests/backends/Backends.h"
#include "tests/oracle/JobOracle.h"

namespace
{
Images MakeImages(int iX, int iY, int iZ, unsigned uiSeed)
{
    Images aImages(iX, iY, iZ);
    std::mt19937 aRandom(uiSeed);
    std::uniform_real_distribution<float> aValue(0.1f, 1);
    std::ranges::generate(aImages.vf, [&] { return aValue(aRandom); });
    return aImages;
}

void Load(const Images& rImages, Util_Volume& rVolume)
{
    rVolume.SetSize(rImages.iX, rImages.iY, rImages.iN);
    std::ranges::copy(rImages.vf, rVolume.GetData());
}

std::vector<float> Voxels(const Util_Volume& rVolume)
{
    return {rVolume.GetData(), rVolume.GetData() + rVolume.GetVoxels()};
}

class TomoSmooth : public testing::TestWithParam<std::string>
{
protected:
    void SetUp() override
    {
        SetBackend(MakeTestBackend(GetParam(), 1));
        if (!GetBackend()) GTEST_SKIP() << "no device for " << GetParam();
        ASSERT_TRUE(GetBackend()->SelectDevice(0));
    }
    void TearDown() override { SetBackend(nullptr); }
};
INSTANTIATE_TEST_SUITE_P(Sets, TomoSmooth, testing::ValuesIn(GetTestBackends()),
                         [](const auto& rInfo) { return NameOf(rInfo.param); });
}  // namespace

TEST_P(TomoSmooth, AnyPiecesGiveTheSameBits)
{
    const Images aStart = MakeImages(43, 6, 5, 2);
    for (const int iKernelX : {1, 4, 50})
        for (const bool bSeparable : {false, true})
        {
            Images aShape = MakeImages(iKernelX, 3, 2, 3);
            if (bSeparable) std::ranges::fill(aShape.vf, 0.1f);
            Util_Volume aKernel;
            Load(aShape, aKernel);
            const Values vdExpected = SmoothVolume(aStart, aShape);
            std::vector<float> vfWhole;
            for (const int iPieces : {1, 2, 7, 60})
            {
                SCOPED_TRACE(testing::Message() << iKernelX << " wide, " << iPieces << " pieces");
                // The pieces of one device, then those of as many workers.
                Util_Volume aOne, aAll;
                Load(aStart, aOne);
                Load(aStart, aAll);
                ASSERT_TRUE(CTomoSmoothImpl().DoInPieces(aOne, aKernel, iPieces));
                std::vector<CTomoSmooth> vWorkers(iPieces);
                for (int i = 0; i < iPieces; ++i)
                {
                    vWorkers[i].SetVolume(&aAll);
                    vWorkers[i].SetKernel(&aKernel);
                    vWorkers[i].SetDeviceInfo(iPieces, 0, i);
                    ASSERT_TRUE(vWorkers[i].DoIt());
                }
                EXPECT_EQ(Voxels(aAll), aStart.vf);  // only read so far
                for (CTomoSmooth& rWorker : vWorkers) rWorker.Assemble();
                if (vfWhole.empty()) vfWhole = Voxels(aOne);
                EXPECT_EQ(Voxels(aOne), vfWhole);
                EXPECT_EQ(Voxels(aAll), vfWhole);
            }
            EXPECT_LE(RelativeError(vfWhole, vdExpected), 1e-6);
        }
}

TEST_P(TomoSmooth, PiecesFollowTheMemory)
{
    const std::size_t tMiB = GetBackend()->GetDeviceMemory(0) >> 20;
    const std::size_t tQuarter = (tMiB >> 2) * (std::size_t(1) << 18);  // voxels
    EXPECT_EQ(CTomoSmoothImpl::CalcNumSplits(1, 0), 1);
    EXPECT_EQ(CTomoSmoothImpl::CalcNumSplits(2 * tQuarter - 1, 0), 1);
    EXPECT_EQ(CTomoSmoothImpl::CalcNumSplits(2 * tQuarter, 0), 2);
    EXPECT_EQ(CTomoSmoothImpl::CalcNumSplits(1, GetBackend()->GetDeviceCount()), 0);

    // Three copies; the overlaps of three inner sides come on top.
    const int aiSize[3] = {100, 10, 10};
    EXPECT_EQ(CTomoSmooth::GetBytes(aiSize, 5, 1, 0), std::size_t(100) * 100 * 4 * 3);
    EXPECT_EQ(CTomoSmooth::GetBytes(aiSize, 5, 4, 0), std::size_t(100 + 3 * 4) * 100 * 4 * 3);
    EXPECT_EQ(CTomoSmooth::GetBytes(aiSize, 255, 4, 0), std::size_t(400) * 100 * 4 * 3);
}
