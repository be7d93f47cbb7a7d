#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>

#include "Util/Util_Volume.h"
#include "gpulib/App/Smooth/TomoSmooth.h"
#include "gpulib/App/Smooth/TomoSmoothImpl.h"
#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"
#include "tests/backends/Backends.h"
#include "tests/oracle/Oracle.h"

namespace
{
void Fill(Util_Volume& rVolume, int iX, int iY, int iZ, unsigned uiSeed)
{
    rVolume.SetSize(iX, iY, iZ);
    std::mt19937 aRandom(uiSeed);
    std::uniform_real_distribution<float> aValue(0.1f, 1);
    std::generate_n(rVolume.GetData(), rVolume.GetVoxels(), [&] { return aValue(aRandom); });
}

std::vector<float> Voxels(const Util_Volume& rVolume)
{
    return {rVolume.GetData(), rVolume.GetData() + rVolume.GetVoxels()};
}

Images ToOracle(const Util_Volume& rVolume)
{
    Images aImages(rVolume.GetSizeX(), rVolume.GetSizeY(), rVolume.GetSizeZ());
    aImages.vf = Voxels(rVolume);
    return aImages;
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

TEST(SplitVolumeX, CutsCoresAndOverlaps)
{
    struct Piece
    {
        int iStart, iSize, iLeft, iRight;
    };
    const struct
    {
        int iX, iSplits, iOverlap;
        std::vector<Piece> vPieces;
    } aCases[] = {{101, 2, 2, {{0, 50, 0, 2}, {50, 51, 2, 0}}},
                  {9, 1, 3, {{0, 9, 0, 0}}},
                  {10, 3, 5, {{0, 3, 0, 5}, {3, 3, 3, 4}, {6, 4, 5, 0}}},  // wider than a piece
                  {2, 3, 1, {{0, 0, 0, 1}, {0, 0, 0, 1}, {0, 2, 0, 0}}},
                  {5, 0, 1, {}}};
    for (const auto& rCase : aCases)
    {
        SCOPED_TRACE(testing::Message() << rCase.iX << " in " << rCase.iSplits);
        Util_Volume aVolume;
        Fill(aVolume, rCase.iX, 2, 3, 1);
        CSplitVolumeX aSplit;
        aSplit.DoIt(&aVolume, rCase.iSplits, rCase.iOverlap);
        ASSERT_EQ(aSplit.GetNumSplits(), int(rCase.vPieces.size()));
        for (int n = 0; n < aSplit.GetNumSplits(); ++n)
        {
            const Piece& rPiece = rCase.vPieces[n];
            EXPECT_EQ(aSplit.GetStartX(n), rPiece.iStart);
            EXPECT_EQ(aSplit.GetSizeX(n), rPiece.iSize);
            EXPECT_EQ(aSplit.GetOverlapLeft(n), rPiece.iLeft);
            EXPECT_EQ(aSplit.GetOverlapRight(n), rPiece.iRight);
            const std::unique_ptr<Util_Volume> pPiece = aSplit.GetNthSplit(n);
            ASSERT_EQ(pPiece != nullptr, rPiece.iSize > 0);
            if (!pPiece) continue;
            EXPECT_EQ(pPiece->GetSizeX(), rPiece.iLeft + rPiece.iSize + rPiece.iRight);
            EXPECT_EQ(pPiece->GetLineX(1, 2)[0],
                      aVolume.GetLineX(1, 2)[rPiece.iStart - rPiece.iLeft]);
        }
        EXPECT_EQ(aSplit.GetNthSplit(rCase.iSplits), nullptr);
    }
}

TEST_P(TomoSmooth, AnyPiecesGiveTheSameBits)
{
    for (const int iKernelX : {1, 4, 5, 50})
        for (const bool bSeparable : {false, true})
        {
            Util_Volume aStart, aKernel;
            Fill(aStart, 43, 6, 5, 2);
            Fill(aKernel, iKernelX, 3, 2, 3);
            if (bSeparable) std::fill_n(aKernel.GetData(), aKernel.GetVoxels(), 0.1f);
            const Values vdExpected = SmoothVolume(ToOracle(aStart), ToOracle(aKernel));
            std::vector<float> vfWhole;
            for (const int iPieces : {1, 2, 7, 60})
            {
                SCOPED_TRACE(testing::Message() << iKernelX << " wide, " << iPieces << " pieces");
                // The pieces of one device, then those of as many workers.
                Util_Volume aOne, aAll;
                Fill(aOne, 43, 6, 5, 2);
                Fill(aAll, 43, 6, 5, 2);
                ASSERT_TRUE(CTomoSmoothImpl().DoInPieces(aOne, aKernel, iPieces));
                std::vector<CTomoSmooth> vWorkers(iPieces);
                for (int i = 0; i < iPieces; ++i)
                {
                    vWorkers[i].SetVolume(&aAll);
                    vWorkers[i].SetKernel(&aKernel);
                    vWorkers[i].SetDeviceInfo(iPieces, 0, i);
                    ASSERT_TRUE(vWorkers[i].DoIt());
                }
                EXPECT_EQ(Voxels(aAll), Voxels(aStart));  // only read so far
                for (CTomoSmooth& rWorker : vWorkers) rWorker.Assemble();

                if (vfWhole.empty()) vfWhole = Voxels(aOne);
                EXPECT_EQ(Voxels(aOne), vfWhole);
                EXPECT_EQ(Voxels(aAll), vfWhole);
            }
            for (std::size_t i = 0; i < vfWhole.size(); ++i)
                ASSERT_NEAR(vfWhole[i] / vdExpected[i], 1, 3e-6) << i;
        }
}

TEST_P(TomoSmooth, WithoutKernelOrDevice)
{
    Util_Volume aVolume, aKernel;
    Fill(aVolume, 5, 4, 3, 4);
    Fill(aKernel, 3, 3, 3, 5);
    const std::vector<float> vfStart = Voxels(aVolume);
    CTomoSmooth aSmooth;
    aSmooth.SetVolume(&aVolume);
    EXPECT_TRUE(aSmooth.DoIt());
    aSmooth.Assemble();
    aSmooth.SetKernel(&aKernel);
    aSmooth.SetDeviceInfo(1, 3, 0);
    EXPECT_FALSE(aSmooth.DoIt());
    EXPECT_EQ(TakeDeviceError(), "smooth: no memory on device 3");
    aSmooth.Assemble();
    EXPECT_EQ(Voxels(aVolume), vfStart);
}

TEST_P(TomoSmooth, PiecesFollowTheMemory)
{
    const std::size_t tMiB = GetBackend()->GetDeviceMemory(0) >> 20;
    const std::size_t tQuarter = (tMiB >> 2) * (std::size_t(1) << 18);  // voxels
    EXPECT_EQ(CTomoSmoothImpl::CalcNumSplits(1, 0), 1);
    EXPECT_EQ(CTomoSmoothImpl::CalcNumSplits(2 * tQuarter - 1, 0), 1);
    EXPECT_EQ(CTomoSmoothImpl::CalcNumSplits(2 * tQuarter, 0), 2);
    EXPECT_EQ(CTomoSmoothImpl::CalcNumSplits(1, 1), 0);

    // Three copies; the overlaps of three inner sides come on top.
    const int aiSize[3] = {100, 10, 10};
    EXPECT_EQ(CTomoSmooth::GetBytes(aiSize, 5, 1, 0), std::size_t(100) * 100 * 4 * 3);
    EXPECT_EQ(CTomoSmooth::GetBytes(aiSize, 5, 4, 0), std::size_t(100 + 3 * 4) * 100 * 4 * 3);
    EXPECT_EQ(CTomoSmooth::GetBytes(aiSize, 255, 4, 0), std::size_t(400) * 100 * 4 * 3);
}
