// What the library computes, and how the program reads lists.

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>
#include <random>

#include "Lists.h"
#include "Support.h"
#include "talven/Agreement.h"
#include "talven/Phantom.h"
#include "talven/ReconPlan.h"
#include "talven/SectionMaps.h"
#include "talven/ServerLink.h"
#include "talven/ShiftSearch.h"
#include "talven/Slices.h"
#include "talven/Text.h"

namespace talven::test
{
namespace
{

using Words = std::vector<std::uint32_t>;

Floats MakeAngles(int iCount)
{
    Floats vfAngles;
    for (int i = 0; i < iCount; ++i) vfAngles.push_back(float(2 * i - iCount));
    return vfAngles;
}

TEST(ClientCompute, EverySubsetSpreadsOverTheTiltRange)
{
    Floats vfAngles = MakeAngles(61);  // in the order in which microscopes record them: any
    std::shuffle(vfAngles.begin(), vfAngles.end(), std::mt19937(1));
    Words vuiAll(61);
    std::iota(vuiAll.begin(), vuiAll.end(), 0u);
    EXPECT_EQ(DivideIntoSubsets(61, 4), (Words{16, 15, 15, 15}));
    for (const Words& rSizes : {DivideIntoSubsets(61, 4), Words{30, 20, 11}})
    {
        const Words vuiList = InterleaveSubsets(vuiAll, vfAngles, rSizes);
        ASSERT_TRUE(
            std::is_permutation(vuiList.begin(), vuiList.end(), vuiAll.begin(), vuiAll.end()));
        std::size_t tNext = 0;
        for (const std::uint32_t uiSize : rSizes)
        {
            Floats vfSet;
            for (; vfSet.size() < uiSize; ++tNext) vfSet.push_back(vfAngles[vuiList[tNext]]);
            std::sort(vfSet.begin(), vfSet.end());
            for (std::size_t i = 1; i < vfSet.size(); ++i)  // at most twice the even spacing
                EXPECT_LE(vfSet[i] - vfSet[i - 1], 2 * 122.0f / float(uiSize));
        }
    }
    const Words vuiEight(vuiAll.begin(), vuiAll.begin() + 8);
    EXPECT_EQ(InterleaveSubsets(vuiEight, MakeAngles(8), DivideIntoSubsets(8, 8)),
              (Words{0, 4, 2, 6, 1, 5, 3, 7}));
    EXPECT_EQ(InterleaveSubsets(vuiEight, MakeAngles(8), Words{1, 1, 1}).size(), 8u)
        << "what no subset takes comes last";
}

TEST(ClientCompute, APlanIsWhatWasAskedFor)
{
    ReconPlan aPlan;
    std::string strError;
    const auto Plan = [&](const ReconRequest& rRequest, int iViews) {
        EXPECT_TRUE(MakeReconPlan(rRequest, 6, 4, MakeAngles(iViews), aPlan, strError)) << strError;
    };
    ReconRequest aRequest;
    aRequest.iThickness = 3;
    Plan(aRequest, 61);
    EXPECT_EQ(aPlan.aOptions.vuiSetSizes, DivideIntoSubsets(61, 10));
    EXPECT_EQ(aPlan.aSize.iVolX, 6);
    EXPECT_EQ(aPlan.DescribeMethod(), "SART, 10 iterations, 10 subsets");
    aRequest.viExclude = {1};
    aRequest.iSubsets = 2;
    aRequest.iWidth = 9;
    aRequest.dSmoothSigma = 0.7;
    aRequest.iSmoothInterval = 5;
    Plan(aRequest, 5);
    EXPECT_EQ(aPlan.viViews, (std::vector<int>{0, 2, 3, 4}));
    EXPECT_EQ(aPlan.vfAngles, (Floats{-5, -1, 1, 3}));
    EXPECT_EQ(aPlan.vuiOrder, (Words{0, 2, 1, 3})) << "{-5, 1} and {-1, 3}";
    EXPECT_EQ(aPlan.aOptions.vfRelax, Floats(20, 1));
    EXPECT_EQ(aPlan.iSmoothInterval, 5);
    EXPECT_EQ(aPlan.aSmoothKernel.iSize, 7);
    const JobSize& rSize = aPlan.aSize;
    EXPECT_TRUE(rSize.iProjX == 6 && rSize.iProjY == 4 && rSize.iProjs == 4 && rSize.iVolX == 9 &&
                rSize.iVolZ == 3 && rSize.bSmooth);
    EXPECT_EQ(aPlan.DescribeMethod(), "SART, 10 iterations, 2 subsets, smoothed");
    aRequest.viInclude = {0, 3};
    aRequest.iSubsets = 0;
    aRequest.vuiSubsetSizes = {1, 1};
    aRequest.bInterleave = false;
    aRequest.eMethod = EMethod::eEm;
    aRequest.iIterations = aRequest.iSmoothInterval = 1;
    Plan(aRequest, 5);
    EXPECT_EQ(aPlan.vfAngles, (Floats{-5, 1}));
    EXPECT_EQ(aPlan.vuiOrder, (Words{0, 1}));
    EXPECT_EQ(aPlan.DescribeMethod(), "EM, 1 iteration, 2 subsets, smoothed");
}

TEST(ClientCompute, RelaxationAndSmoothingFollowTheirFormulas)
{
    for (const auto& [pcText, vfExpected] : std::vector<std::pair<const char*, Floats>>{
             {"0.5", {0.5, 0.5, 0.5, 0.5, 0.5, 0.5}},
             {"1,0.5,0.25", {1, 1, 0.5, 0.5, 0.25, 0.25}},
             {"0.8:0.5", {0.8f, 0.8f, 0.4f, 0.4f, 0.2f, 0.2f}}})
    {
        Relaxation aRelax;
        Floats vfTable;
        std::string strError;
        EXPECT_TRUE(ParseRelaxation(pcText, aRelax, strError) &&
                    MakeRelaxTable(aRelax, 3, 2, vfTable, strError));
        EXPECT_EQ(vfTable, vfExpected) << pcText;
        EXPECT_FALSE(aRelax.vdFactors.size() == 3 &&
                     MakeRelaxTable(aRelax, 2, 2, vfTable, strError));
    }
    for (const auto& [dSigma, iSize] : {std::pair{0.1, 3}, {1.0, 7}, {1.1, 9}})
    {
        const GaussianKernel aKernel = MakeGaussianKernel(dSigma);
        ASSERT_EQ(aKernel.iSize, iSize);
        const auto tSize = static_cast<std::size_t>(iSize);
        ASSERT_EQ(aKernel.vfValues.size(), tSize * tSize * tSize);
        EXPECT_NEAR(std::accumulate(aKernel.vfValues.begin(), aKernel.vfValues.end(), 0.0), 1,
                    1e-6);
        const std::size_t tMiddle = aKernel.vfValues.size() / 2;
        for (const std::size_t tNext : {tMiddle + 1, tMiddle - tSize, tMiddle + tSize * tSize})
            EXPECT_NEAR(aKernel.vfValues[tNext] / aKernel.vfValues[tMiddle],
                        std::exp(-0.5 / dSigma / dSigma), 1e-6);
    }
}

TEST(ClientCompute, SizesAreLimitedAndCounted)
{
    const JobSize aSize = {4, 3, 2, 5, 6, false};
    EXPECT_EQ(aSize.GetBytes(1), 4u * (24 + 90) + 8 * 6 + 64 * (3 * 8 + 2 * 30));
    EXPECT_EQ(aSize.GetBytes(3) - aSize.GetBytes(1), 2u * 64 * (3 * 8 + 2 * 30));
    EXPECT_EQ((JobSize{4, 3, 2, 5, 6, true}.GetBytes(1) - aSize.GetBytes(1)), 4u * 90);
    std::string strError;
    EXPECT_TRUE(CheckJobSize({1024, 1024, 61, 1024, 2047}, false, strError)) << strError;
    EXPECT_FALSE(CheckJobSize({1024, 1024, 61, 1025, 2048}, false, strError));
    EXPECT_EQ(strError.find("the volume of 1025 x 1024 x 2048 has 2^31 or more voxels"), 0u);
    EXPECT_FALSE(CheckJobSize({2048, 1024, 1024, 64, 64}, false, strError));
    EXPECT_EQ(strError.find("the stack of 2048 x 1024 x 1024 has"), 0u) << strError;
    EXPECT_FALSE(CheckJobSize({1 << 24, 1 << 24, 1, 2147483647, 2147483647}, false, strError));
    const std::uint64_t ulFree = GetFreeMemory();
    EXPECT_GT(ulFree, 1u << 20);
    if (ulFree < std::uint64_t(15) << 30)
    {
        EXPECT_FALSE(CheckJobSize({1024, 1023, 2047, 1024, 2047}, true, strError));
        EXPECT_EQ(strError.find("the server would need 16"), 0u) << strError;
    }
    ServerOptions aOptions;
    EXPECT_GE(aOptions.EstimateDevices(), 1);
    EXPECT_LE(aOptions.EstimateDevices(), 16);
    aOptions.iDevices = 3;
    EXPECT_EQ(aOptions.EstimateDevices(), 3);
    EXPECT_EQ(GetBusyDevices(14), "14,15");
    for (const auto& [ulBytes, pcText] :
         {std::pair{5ul << 10, "5 kiB"}, {1ul << 20, "1 MiB"}, {3ul << 29, "1.5 GiB"}})
        EXPECT_EQ(FormatBytes(ulBytes), pcText);
    for (const auto& [dSeconds, pcText] :
         {std::pair{0.456, "0.46 s"}, {59.94, "59.9 s"}, {185, "3 min 05 s"}, {7260, "2 h 01 min"}})
        EXPECT_EQ(FormatSeconds(dSeconds), pcText);
    EXPECT_EQ(Format("%s!", std::string(3000, 'a').c_str()), std::string(3000, 'a') + "!");
}

TEST(ClientCompute, MapsAndScales)
{
    const Affine aTurn = {0, -1, 1, 0, 0.5, 0};  // a quarter turn
    const CSectionMaps aCentres({aTurn}, true, {5, 7}, {11, 21});
    const Affine aMap = aCentres.GetMap(3, 1, 2);
    EXPECT_EQ(aMap[0] * 2 + aMap[1] * 3 + aMap[4], 5 + 0.5f + 1) << "centre on centre, and shifts";
    EXPECT_EQ(aMap[2] * 2 + aMap[3] * 3 + aMap[5], 10 + 2);
    EXPECT_EQ(aCentres.GetOwnMap(0, 1, 2), (Affine{0, -1, 1, 0, 1.5, 2}));
    const CSectionMaps aCorners({g_aIdentity, aTurn}, false, {5, 7}, {11, 21});
    EXPECT_EQ(aCorners.GetMap(1, 1, 2), (Affine{0, -1, 1, 0, 1.5, 2}));
    EXPECT_EQ(aCorners.GetMap(0), g_aIdentity);

    double dOffset = 3;
    IntensityScale aScale = TakeOff({2, 1, 50}, dOffset);
    EXPECT_TRUE(aScale.fOffset == -2 && aScale.fMost == 47 && aScale.fGain == 2 && dOffset == 3);
    aScale = TakeOff({1, 0, 50, true, 1, 2, 100}, dOffset);
    EXPECT_NEAR(2 * std::log(100 / aScale.fBeam), 3, 1e-5);
    EXPECT_EQ(aScale.fMost, 47);
    dOffset = 1e6;
    EXPECT_EQ(TakeOff({1, 0, 50, true, 1, 2, 100}, dOffset).fBeam, 100);
    EXPECT_EQ(dOffset, 0) << "out of reach";
    EXPECT_TRUE(KeepsMissing({}) && !KeepsMissing({-1, 0}) && !KeepsMissing({1, 0, 9, true}));
    EXPECT_TRUE(IsMissing(-1e16f) && !IsMissing(-1e15f));
}

TEST(ClientCompute, FiguresFollowFromSums)
{
    CompareSums aSums = {4, 11, 64, 10, 10, 30, 21, 21, 137, 0};  // 1 2 3 4 and 2 4 6 9
    EXPECT_NEAR(CalcCorrelation(aSums), 11.5 / std::sqrt(5 * 26.75), 1e-9);
    EXPECT_DOUBLE_EQ(CalcMeanDifference(aSums), 2.75);
    aSums.fTransedSqr = 21 * 21 / 4.0f;  // t is constant
    EXPECT_TRUE(std::isnan(CalcCorrelation(aSums)));
    EXPECT_TRUE(std::isnan(CalcCorrelation({})) && std::isnan(CalcMeanDifference({})));
    EXPECT_DOUBLE_EQ(CalcRfactor(std::vector<RfactorSums>{{10, 2}, {30, 8}}), 0.25);
    EXPECT_TRUE(std::isnan(CalcRfactor({})));
    CAgreement aAgreement;
    aAgreement.Add(Floats{1, 2}, Floats{2, 4});
    aAgreement.Add(Floats{3, 4}, Floats{6, 9});
    EXPECT_NEAR(aAgreement.GetCorrelation(), 11.5 / std::sqrt(5 * 26.75), 1e-12);
    EXPECT_NEAR(aAgreement.GetRelativeError(), std::sqrt(39.0 / 137), 1e-12);
    CAgreement aFlat;
    aFlat.Add(Floats{1, 1}, Floats{2, 3});
    EXPECT_EQ(aFlat.GetCorrelation(), 0);
    for (const double dPeak : {-0.4, 0.0, 0.3})
    {
        const auto At = [dPeak](double dX) { return 5 - 2 * (dX - dPeak) * (dX - dPeak); };
        EXPECT_NEAR(FitPeak(At(-1), At(0), At(1)), dPeak, 1e-12);
    }
    EXPECT_TRUE(FitPeak(1, 1, 1) == 0 && FitPeak(0, 1, 2) == 0 && FitPeak(2, 1, 0) == 0 &&
                FitPeak(std::nan(""), 1, 0) == 0);
}

TEST(ClientCompute, TheBestShiftIsFound)
{
    // Two bumps, the lower one nearer; a correlation as a function of the shift.
    double dPeakX = 0, dPeakY = 0;
    int iProbes = 0, iLast = 1 << 30;
    const auto Probe = [&](double dX, double dY, CompareSums& rSums)
    {
        const auto Bump = [&](double dAtX, double dAtY)
        { return std::exp(-(std::pow(dX - dAtX, 2) + std::pow(dY - dAtY, 2)) / 8); };
        const double dCross = 0.9 * Bump(dPeakX, dPeakY) + 0.5 * Bump(dPeakX - 12, dPeakY);
        rSums = {100, 1, float(dCross) * 100, 0, 0, 100, 0, 0, 100, 0};
        return ++iProbes < iLast;
    };
    ShiftMatch aMatch;
    for (const auto& [iRange, dX, dY] : {std::tuple{1, 0., 0.},
                                         {3, -2.3, 1.4},
                                         {10, 7.5, -9.2},
                                         {30, -22.7, 15.25},
                                         {30, 0., 29.}})
    {
        SCOPED_TRACE(testing::Message() << "range " << iRange << " shift " << dX << " " << dY);
        dPeakX = dX;
        dPeakY = dY;
        iProbes = 0;
        ASSERT_EQ(CShiftSearch(iRange, 100, Probe).Run(aMatch), CShiftSearch::EResult::eFound);
        EXPECT_NEAR(aMatch.dX, dX, 0.1);
        EXPECT_NEAR(aMatch.dY, dY, 0.1);
        EXPECT_EQ(aMatch.dCorrelation, CalcCorrelation(aMatch.aSums));
        EXPECT_GT(aMatch.dCorrelation, 0.89);
        EXPECT_FALSE(aMatch.bAtEdge);
        EXPECT_LT(iProbes, iRange == 30 ? 61 * 61 / 4 : 1000) << "coarse to fine";
    }
    dPeakX = 3.5;
    dPeakY = 0;
    ASSERT_EQ(CShiftSearch(2, 100, Probe).Run(aMatch), CShiftSearch::EResult::eFound);
    EXPECT_TRUE(aMatch.bAtEdge && aMatch.dX == 2);
    EXPECT_EQ(CShiftSearch(5, 101, Probe).Run(aMatch), CShiftSearch::EResult::eNothing);
    iProbes = 0;
    iLast = 7;
    EXPECT_EQ(CShiftSearch(5, 0, Probe).Run(aMatch), CShiftSearch::EResult::eEnded);
    EXPECT_EQ(iProbes, 7) << "it went on";
}

TEST(ClientCompute, SlicesAreCutOutOfTheirVolume)
{
    CSlices aSlices(3, 4, 5);
    aSlices.WantCentral();
    aSlices.Want('z', 0);
    Floats vfSection(12);
    for (int z = 0; z < 5; ++z)
    {
        for (int i = 0; i < 12; ++i)  // 100 z + 10 y + x
            vfSection[std::size_t(i)] = float(100 * z + 10 * (i / 3) + i % 3);
        aSlices.Add(z, vfSection);
    }
    const auto At = [&](std::size_t tSlice, int x, int y)
    {
        const Slice& rSlice = aSlices.Get()[tSlice];
        return rSlice.vfPixels[std::size_t(y * rSlice.iWidth + x)];
    };
    EXPECT_TRUE(At(0, 2, 1) == 212 && At(1, 4, 3) == 431 && At(2, 1, 3) == 321 &&
                At(3, 0, 3) == 30);
    EXPECT_EQ(aSlices.Get()[1].iHeight, 4);
    EXPECT_TRUE(aSlices.Needs(1));
    CSlices aOne(3, 4, 5);
    aOne.Want('z', 4);
    EXPECT_TRUE(aOne.Needs(4) && !aOne.Needs(3));
    const Slice aRamp = {'z', 0, 5, 1, {5, -1e30f, 1, 4, 2}}, aMore = {'z', 0, 1, 1, {3}};
    const auto [fLow, fHigh] = FindPercentiles(std::vector{aRamp, aMore}, 25, 100);
    EXPECT_TRUE(fLow == 2 && fHigh == 5) << fLow << " " << fHigh;
    EXPECT_EQ(FindPercentiles({}, 0, 100).fHigh, 0);
}

TEST(ClientCompute, PhantomsHaveExactProjections)
{
    constexpr int iX = 61, iY = 40, iZ = 50;
    const double dMass = 2 * 4.0 / 3 * std::numbers::pi * 12 * 7 * 9;
    const CEllipsoid aEllipsoid({4, -3, 6}, {12, 7, 9}, 35, -20, 2);
    const CPhantomModel aModel(iX, iY, iZ, {aEllipsoid});
    Floats vfPixels(iX * iY);
    for (const double dAngle : {-60.0, 0.0, 37.0, 135.0})
    {
        aModel.MakeProjection(dAngle, vfPixels);
        const double dCos = std::cos(dAngle * std::numbers::pi / 180);
        const double dSin = std::sin(dAngle * std::numbers::pi / 180);
        const int iCentre = int(std::lround(0.5 * (iX - 1) + 4 * dCos + 6 * dSin));
        for (const int x : {iCentre - 3, iCentre + 3})
        {
            double dLength = 0;  // by small steps along the ray
            const double dU = x - 0.5 * (iX - 1);
            for (double t = -60; t < 60; t += 1e-2)
                dLength += 2e-2 * aEllipsoid.Contains(
                                      {dU * dCos - t * dSin, 17 - 19.5, dU * dSin + t * dCos});
            EXPECT_NEAR(vfPixels[std::size_t(17 * iX + x)], dLength, 0.25) << dAngle << ", " << x;
        }
        EXPECT_NEAR(std::accumulate(vfPixels.begin(), vfPixels.end(), 0.0), dMass, 20) << dAngle;
    }
    double adSums[4] = {};
    for (int z = 0; z < iZ; ++z)
    {
        aModel.MakeSection(z, vfPixels);
        for (int i = 0; i < iX * iY; ++i)
        {
            const double adAt[] = {1, i % iX - 30.0, i / iX - 19.5, z - 24.5};
            for (int s = 0; s < 4; ++s) adSums[s] += vfPixels[std::size_t(i)] * adAt[s];
        }
    }
    const double adExpected[] = {dMass, 4 * dMass, -3 * dMass, 6 * dMass};
    for (int s = 0; s < 4; ++s) EXPECT_NEAR(adSums[s], adExpected[s], 0.02 * dMass) << s;

    Floats vfFirst(96 * 80), vfOther(96 * 80);
    CPhantomModel(96, 80, 48, 8, 1).MakeProjection(0, vfFirst);
    CPhantomModel(96, 80, 48, 8, 2).MakeProjection(0, vfOther);
    EXPECT_NE(vfFirst, vfOther);
    EXPECT_EQ(std::count(vfFirst.begin(), vfFirst.begin() + 96, 0), 96) << "it stays inside";
    EXPECT_EQ(std::count(vfFirst.end() - 96, vfFirst.end(), 0), 96);

    const CPhantomModel aLayer(200, 200, 50, {CEllipsoid({0, 0, 0}, {1e4, 1e4, 10}, 0, 0, 0.5)});
    for (const auto& [dNoise, dDose, dVariance] : {std::tuple{0.0, 0.5, 200.0},
                                                   {0.0, 12.0, 100 / 12.0},
                                                   {0.0, 400.0, 0.25},
                                                   {0.2, 0.0, 4.0},
                                                   {0.0, 0.0, 0.0}})
    {
        CDetector aDetector(aLayer, Floats{60, 0, -60}, dNoise, dDose, 7);
        Floats vfNoisy(200 * 200), vfNext(200 * 200);
        aDetector.Record(0, vfNoisy);
        aDetector.Record(0, vfNext);
        EXPECT_EQ(vfNoisy == vfNext, dVariance == 0) << "the noise goes on";
        double dSum = 0, dSquares = 0;
        for (const float fPixel : vfNoisy)
        {
            dSum += fPixel / 4e4;
            dSquares += (fPixel - 10) * (fPixel - 10) / 4e4;
        }
        EXPECT_NEAR(dSum, 10, 5 * std::sqrt(dVariance / 4e4) + 0.01);
        EXPECT_NEAR(dSquares, dVariance, 0.06 * dVariance + 1e-4) << dDose;
    }
}

TEST(ClientCompute, ListsAreRead)
{
    std::vector<int> viViews;
    std::vector<double> vdNumbers;
    Words vuiSizes;
    Relaxation aRelax;
    double dSigma = 0;
    int iInterval = 0;
    std::string strError, strHost;
    std::uint16_t usPort = 0;
    EXPECT_TRUE(ParseViews("7-9,3,8,1", viViews, strError));
    EXPECT_EQ(viViews, (std::vector<int>{0, 2, 6, 7, 8}));
    EXPECT_TRUE(ParseSizes("21,20", vuiSizes, strError) && vuiSizes == (Words{21, 20}));
    EXPECT_TRUE(ParseNumbers("1,-2.5", 2, vdNumbers, strError) && vdNumbers[1] == -2.5);
    EXPECT_TRUE(ParseSmoothing("20", dSigma, iInterval, strError) && dSigma == 20 &&
                iInterval == 1);
    EXPECT_TRUE(ParseSmoothing("2,10", dSigma, iInterval, strError) && iInterval == 10);
    for (const char* pcBad : {"", "0", "3-", "-3", "5-4", "1,,2", "1-2-3", "1-2000000000", "1 "})
        EXPECT_FALSE(ParseViews(pcBad, viViews, strError)) << pcBad;
    for (const char* pcBad : {"", "0,1", "-1", "1,2.5", "1,", "x"})
        EXPECT_FALSE(ParseSizes(pcBad, vuiSizes, strError)) << pcBad;
    for (const char* pcBad : {"1", "1,2,3", "1,inf", "1,x"})
        EXPECT_FALSE(ParseNumbers(pcBad, 2, vdNumbers, strError)) << pcBad;
    for (const char* pcBad : {"", "0", "-1", "nan", "21", "1,0", "1,", "1,2.5", "1,2,3"})
        EXPECT_FALSE(ParseSmoothing(pcBad, dSigma, iInterval, strError)) << pcBad;
    for (const char* pcBad : {"1,0.5:2", "", "-1", "x,1,1", "1:nan", "1:-1", "1:2:3"})
        EXPECT_FALSE(ParseRelaxation(pcBad, aRelax, strError)) << pcBad;
    for (const char* pcBad : {":80", "box:", "box:0", "box:70000", "box:8x", ""})
        EXPECT_FALSE(ParseServer(pcBad, strHost, usPort)) << pcBad;
    for (const auto& [pcText, pcHost, iPort] : {std::tuple{"box:65535", "box", 65535},
                                                {"box", "box", 20248},
                                                {"[::1]:80", "::1", 80},
                                                {"[::1]", "::1", 20248}})
        EXPECT_TRUE(ParseServer(pcText, strHost, usPort) && strHost == pcHost && usPort == iPort);
}

}  // namespace
}  // namespace talven::test
