// How work is divided and weighted, before any device is asked.

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>

#include "Util/Util_Volume.h"
#include "gpulib/App/Iteration/SetSize.h"
#include "gpulib/App/Smooth/SplitVolumeX.h"
#include "gpulib/App/Weights/CalcWeightBase.h"
#include "server/Recon/GaussianKernel.h"
#include "tests/oracle/JobOracle.h"

TEST(SetSize, DividesTheList)
{
    using Ranges = std::vector<std::pair<int, int>>;
    const std::tuple<unsigned, unsigned, std::vector<unsigned>, Ranges> aCases[] = {
        {61, 4, {}, {{0, 16}, {16, 31}, {31, 46}, {46, 61}}},
        {3, 5, {}, {{0, 1}, {1, 2}, {2, 3}, {3, 3}, {3, 3}}},
        {10, 3, {4, 4, 4}, {{0, 4}, {4, 8}, {8, 10}}},
        {10, 2, {2, 3}, {{0, 2}, {2, 5}}},
        // Sums beyond 32 bits stay at the end of the list.
        {10, 3, {4294967295, 2, 3}, {{0, 10}, {10, 10}, {10, 10}}}};
    for (const auto& [uiProjs, uiSets, vuiSizes, vExpected] : aCases)
    {
        CSetSize aSetSize;
        aSetSize.SetNumProjs(uiProjs);
        aSetSize.SetNumSets(uiSets, vuiSizes);
        aSetSize.Calculate();
        Ranges vRanges;
        for (unsigned s = 0; s < aSetSize.GetNumSets(); ++s)
            vRanges.emplace_back(aSetSize.GetSetRange(int(s)).iFirst,
                                 aSetSize.GetSetRange(int(s)).iEnd);
        EXPECT_EQ(vRanges, vExpected) << uiProjs << " in " << uiSets;
        EXPECT_EQ(aSetSize.GetFullRange().iEnd, int(uiProjs));
    }
}

TEST(BoxWeight, IsTheLengthAcrossTheBox)
{
    TestJob aJob;
    aJob.iProjX = 41;
    aJob.vfAngles = {0, 90, -30, 60, -59.3f, 45, 120, 13, -77};
    CCalcWeightBase aBase;
    for (const OracleBox& rBox : {OracleBox{{0, 0}, {10, 4}},
                                  {{5.2f, 0.3f}, {9.7f, 3.1f}},
                                  {{-3, 7}, {6, 22}},
                                  {{0, 0}, {0, 0}},
                                  {{30, 0}, {9, 9}}})
    {
        aBase.SetBox(rBox.afCentre, {2 * rBox.afHalf[0], 2 * rBox.afHalf[1]});
        aBase.SetProjs(aJob.iProjX, int(aJob.vfAngles.size()), aJob.vfAngles);
        aBase.Calculate();
        for (unsigned n = 0; n < aJob.vfAngles.size(); ++n)
        {
            const Values vdExpected = COracle(aJob).PathLengths(rBox, n);
            for (int x = 0; x < aJob.iProjX; ++x)
                EXPECT_NEAR(aBase.GetWeight()[n * 41 + x], vdExpected[x], 1e-4)
                    << aJob.vfAngles[n] << " degrees, column " << x;
        }
    }
    // A ray right through a corner finds that corner twice.
    aBase.SetBox({0, 0}, {10, 10});
    aBase.SetProjs(41, 1, std::span(aJob.vfAngles).subspan(5, 1));
    aBase.Calculate();
    EXPECT_EQ(aBase.GetWeight()[20], 1);
}

TEST(SplitVolumeX, CutsCoresAndOverlaps)
{
    using Piece = std::array<int, 4>;  // start, size, overlaps
    const std::tuple<int, int, int, std::vector<Piece>> aCases[] = {
        {101, 2, 2, {{0, 50, 0, 2}, {50, 51, 2, 0}}},
        {9, 1, 3, {{0, 9, 0, 0}}},
        {10, 3, 5, {{0, 3, 0, 5}, {3, 3, 3, 4}, {6, 4, 5, 0}}},  // wider than a piece
        {2, 3, 1, {{0, 0, 0, 1}, {0, 0, 0, 1}, {0, 2, 0, 0}}},
        {5, 0, 1, {}}};
    for (const auto& [iX, iSplits, iOverlap, vExpected] : aCases)
    {
        Util_Volume aVolume;
        aVolume.SetSize(iX, 2, 3);
        CSplitVolumeX aSplit;
        aSplit.DoIt(&aVolume, iSplits, iOverlap);
        std::vector<Piece> vPieces;
        for (int n = 0; n < aSplit.GetNumSplits(); ++n)
        {
            vPieces.push_back({aSplit.GetStartX(n), aSplit.GetSizeX(n), aSplit.GetOverlapLeft(n),
                               aSplit.GetOverlapRight(n)});
            EXPECT_EQ(aSplit.GetNthSplit(n) != nullptr, vPieces[n][1] > 0);
        }
        EXPECT_EQ(vPieces, vExpected) << iX << " in " << iSplits;
        EXPECT_EQ(aSplit.GetNthSplit(iSplits), nullptr);
    }
}

TEST(GaussianKernel, FollowsTheFormula)
{
    const float afStd[3] = {1.0f, 0.7f, 2.0f};
    for (const auto& [iX, iY, iZ] : {std::array{1, 1, 1}, {4, 1, 1}, {7, 5, 6}})
    {
        CGaussianKernel aGaussian;
        aGaussian.SetSize(iX, iY, iZ);
        aGaussian.SetStd(afStd);
        aGaussian.Build();
        const auto Square = [](int i, int iSize, float fStd)
        { return (i - iSize / 2) * (i - iSize / 2) / double(fStd * fStd); };
        Values vdExpected;
        for (int i = 0; i < iX * iY * iZ; ++i)
            vdExpected.push_back(
                std::exp(-0.5 * (Square(i % iX, iX, 1) + Square(i / iX % iY, iY, afStd[1]) +
                                 Square(i / iX / iY, iZ, 2))));
        const double dSum = std::accumulate(vdExpected.begin(), vdExpected.end(), 0.0);
        for (std::size_t i = 0; i < vdExpected.size(); ++i)
            EXPECT_NEAR(aGaussian.GetKernel().GetData()[i] * dSum / vdExpected[i], 1, 2e-6);
    }
}
