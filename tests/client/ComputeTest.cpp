// What the library computes, and how the program reads lists.

#include <algorithm>
#include <cmath>
#include <numbers>
#include <sstream>

#include "Lists.h"
#include "Support.h"
#include "talven/Agreement.h"
#include "talven/Memory.h"
#include "talven/Phantom.h"
#include "talven/Schedule.h"
#include "talven/SectionMaps.h"
#include "talven/ServerLink.h"
#include "talven/ShiftSearch.h"
#include "talven/Text.h"

namespace talven::test
{
namespace
{

TEST(ClientCompute, EverySubsetSpreadsOverTheTiltRange)
{
    EXPECT_EQ(DivideIntoSubsets(61, 4), (Words{16, 15, 15, 15}));
    const Words vuiAll = {0, 1, 2, 3, 4, 5, 6, 7};
    const Floats vfAngles = {-9, 20, 10, -20, 0, 30, -30, 39};
    EXPECT_EQ(InterleaveSubsets(vuiAll, vfAngles, DivideIntoSubsets(8, 8)),
              (Words{6, 2, 0, 5, 3, 1, 4, 7}));
    EXPECT_EQ(InterleaveSubsets(vuiAll, vfAngles, Words{6, 2}), (Words{6, 3, 4, 2, 1, 7, 0, 5}));
    EXPECT_EQ(InterleaveSubsets(vuiAll, vfAngles, Words{4, 2}), (Words{6, 0, 4, 1, 3, 2, 5, 7}))
        << "what no subset takes comes last";
}

TEST(ClientCompute, SizesAreLimitedAndCounted)
{
    const std::uint64_t ulBatch = 64 * (3 * 8 + 2 * 30), ulPlain = 4u * (24 + 90) + 8 * 6;
    EXPECT_EQ((JobSize{4, 3, 2, 5, 6, false}.GetBytes(3)), ulPlain + 3 * ulBatch);
    EXPECT_EQ((JobSize{4, 3, 2, 5, 6, true}.GetBytes(1)), ulPlain + ulBatch + 4u * 90);
    std::string strError;
    EXPECT_TRUE(CheckJobSize({1024, 1024, 61, 1024, 2047}, false, strError)) << strError;
    for (const auto& [aSize, strReason] :
         {std::pair<JobSize, std::string>{{1024, 1024, 61, 1025, 2048},
                                          "volume of 1025 x 1024 x 2048 has 2^31 or more voxels"},
          {{2048, 1024, 1024, 64, 64}, "stack of 2048 x 1024 x 1024 has 2^31 or more pixels"},
          {{1 << 24, 1 << 24, 1, 2147483647, 2147483647}, "stack of"}})
        EXPECT_TRUE(!CheckJobSize(aSize, false, strError) && strError.find(strReason) == 4)
            << strError;
    const JobSize aLarge = {1024, 1023, 2047, 1024, 2047};
    const std::uint64_t ulFree = GetFreeMemory();
    EXPECT_EQ(CheckJobSize(aLarge, true, strError), ulFree >= aLarge.GetBytes(1)) << strError;
    EXPECT_TRUE(ulFree > 1u << 20 && GetBusyDevices(14) == "14,15");
    EXPECT_TRUE(FormatBytes(5ul << 10) == "5 kiB" && FormatBytes(3ul << 29) == "1.5 GiB");
    EXPECT_TRUE(FormatSeconds(0.456) == "0.46 s" && FormatSeconds(59.94) == "59.9 s");
    EXPECT_TRUE(FormatSeconds(185) == "3 min 05 s" && FormatSeconds(7260) == "2 h 01 min");
    EXPECT_EQ(Format("%s!", std::string(3000, 'a').c_str()), std::string(3000, 'a') + "!");
}

TEST(ClientCompute, FiguresFollowFromSums)
{
    CompareSums aSums = {4, 11, 64, 10, 10, 30, 21, 21, 137, 0};  // 1 2 3 4 and 2 4 6 9
    const double dCorrelation = 11.5 / std::sqrt(5 * 26.75);
    EXPECT_NEAR(CalcCorrelation(aSums), dCorrelation, 1e-9);
    EXPECT_DOUBLE_EQ(CalcMeanDifference(aSums), 2.75);
    aSums.fTransedSqr = 21 * 21 / 4.0f;  // t is constant
    for (const double d :
         {CalcCorrelation(aSums), CalcCorrelation({}), CalcMeanDifference({}), CalcRfactor({})})
        EXPECT_TRUE(std::isnan(d));
    EXPECT_DOUBLE_EQ(CalcRfactor(std::vector<RfactorSums>{{10, 2}, {30, 8}}), 0.25);
    CAgreement aAgreement, aFlat;
    aAgreement.Add(Floats{1, 2}, Floats{2, 4});
    aAgreement.Add(Floats{3, 4}, Floats{6, 9});
    aFlat.Add(Floats{1, 1}, Floats{2, 3});
    EXPECT_NEAR(aAgreement.GetCorrelation(), dCorrelation, 1e-12);
    EXPECT_NEAR(aAgreement.GetRelativeError(), std::sqrt(39.0 / 137), 1e-12);
    EXPECT_EQ(aFlat.GetCorrelation(), 0);
    EXPECT_DOUBLE_EQ(FitPeak(5 - 2 * 1.69, 5 - 2 * 0.09, 5 - 2 * 0.49), 0.3);
    EXPECT_TRUE(FitPeak(1, 1, 1) == 0 && FitPeak(0, 1, 2) == 0 && FitPeak(2, 1, 0) == 0);
    double dNear = 3, dFar = 1e6;
    const IntensityScale aLog = {1, 0, 50, true, 1, 2, 100}, aScale = TakeOff(aLog, dNear);
    EXPECT_NEAR(2 * std::log(100 / aScale.fBeam), 3, 1e-5);
    EXPECT_EQ(aScale.fMost, 47);
    EXPECT_TRUE(TakeOff(aLog, dFar).fBeam == 100 && dFar == 0) << "out of reach";
    EXPECT_TRUE(IsMissing(-1e16f) && !IsMissing(-1e15f));
}

TEST(ClientCompute, TheBestShiftIsFound)
{
    // A correlation as a function of the shift: a bump, and a lower one that is nearer.
    int iProbes = 0, iLast = 0;
    const auto Probe = [&](double dX, double dY, CompareSums& rSums)
    {
        const auto Bump = [&](double dAtX)
        { return std::exp(-(std::pow(dX - dAtX, 2) + std::pow(dY - 29, 2)) / 8); };
        const double dCross = 0.9 * Bump(-22.7) + 0.5 * Bump(-10.7);
        rSums = {100, 1, float(dCross) * 100, 0, 0, 100, 0, 0, 100, 0};
        return ++iProbes != iLast;
    };
    ShiftMatch aMatch;
    EXPECT_EQ(CShiftSearch(30, 100, Probe).Run(aMatch), CShiftSearch::EResult::eFound);
    EXPECT_NEAR(std::hypot(aMatch.dX + 22.7, aMatch.dY - 29), 0, 0.1);
    EXPECT_EQ(aMatch.dCorrelation, CalcCorrelation(aMatch.aSums));
    EXPECT_TRUE(aMatch.dCorrelation > 0.89 && !aMatch.bAtEdge);
    EXPECT_LT(iProbes, 61 * 61 / 4) << "coarse to fine";
    EXPECT_EQ(CShiftSearch(5, 101, Probe).Run(aMatch), CShiftSearch::EResult::eNothing);
    iLast = iProbes + 7;
    EXPECT_EQ(CShiftSearch(5, 0, Probe).Run(aMatch), CShiftSearch::EResult::eEnded);
    EXPECT_EQ(iProbes, iLast) << "it went on";
}

TEST(ClientCompute, PhantomsHaveExactProjections)
{
    constexpr int iX = 61, iY = 40, iZ = 51;
    const CPhantomModel aModel(iX, iY, iZ, {CEllipsoid({4, -3, 6}, {12, 7, 9}, 35, -20, 2)});
    Floats vfTop(iX * iY), vfSide(iX * iY), vfSection(iX * iY);
    aModel.MakeProjection(0, vfTop);
    aModel.MakeProjection(90, vfSide);
    double dMass = 0, dX = 0, dY = 0, dZ = 0;
    for (int i = 0; i < iX * iY; ++i)
    {
        dMass += vfTop[i];
        dX += vfTop[i] * (i % iX);
        dY += vfTop[i] * (i / iX);
        dZ += vfSide[i] * (i % iX);
    }
    EXPECT_NEAR(dMass, 2 * 4.0 / 3 * std::numbers::pi * 12 * 7 * 9, 20);
    EXPECT_NEAR(std::hypot(dX / dMass - 34, dY / dMass - 16.5, dZ / dMass - 36), 0, 0.1);
    // The sections add up to both projections.
    for (int z = 0; z < iZ; ++z)
    {
        aModel.MakeSection(z, vfSection);
        for (int i = 0; i < iX * iY; ++i)
        {
            vfTop[i] -= vfSection[i];
            vfSide[i / iX * iX + z + 5] -= vfSection[i];
        }
    }
    for (int i = 0; i < iX * iY; ++i)
        EXPECT_LT(std::fabs(vfTop[i]) + std::fabs(vfSide[i]), 1.2) << i % iX << " " << i / iX;

    const CPhantomModel aLayer(200, 200, 50, {CEllipsoid({0, 0, 0}, {1e4, 1e4, 10}, 0, 0, 0.5)});
    for (const auto& [dNoise, dDose, dVariance] :
         {std::tuple{0., 0.5, 200.}, {0., 12., 100 / 12.}, {0., 400., 0.25}, {0.2, 0., 4.}, {}})
    {
        CDetector aDetector(aLayer, Floats{60, 0, -60}, dNoise, dDose, 7);
        Floats vfNoisy(200 * 200), vfNext(200 * 200);
        aDetector.Record(0, vfNoisy);
        aDetector.Record(0, vfNext);
        EXPECT_EQ(vfNoisy == vfNext, dVariance == 0) << "the noise goes on";
        double dSquares = 0;
        for (const float fPixel : vfNoisy) dSquares += (fPixel - 10) * (fPixel - 10) / 4e4;
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
    std::string strError;
    std::vector<ServerName> vaServers;
    const auto Parse = [&](char cKind, const std::string& strText)
    {
        return cKind == 'v'   ? ParseViews(strText, viViews, strError)
               : cKind == 's' ? ParseSizes(strText, vuiSizes, strError)
               : cKind == 'n' ? ParseNumbers(strText, 2, vdNumbers, strError)
               : cKind == 'g' ? ParseSmoothing(strText, dSigma, iInterval, strError)
               : cKind == 'r' ? ParseRelaxation(strText, aRelax, strError)
                              : ParseServers(strText, vaServers, strError);
    };
    EXPECT_TRUE(Parse('v', "7-9,3,8,1") && viViews == (std::vector<int>{0, 2, 6, 7, 8}));
    EXPECT_TRUE(Parse('g', "20") && dSigma == 20 && iInterval == 1);
    EXPECT_TRUE(Parse('g', "2,10") && iInterval == 10);
    std::istringstream aBad(
        "v v0 v3- v-3 v5-4 v1,,2 v1-2-3 v1-2000000000 v1x s s0,1 s-1 s1,2.5 s1, n1 n1,2,3 n1,inf "
        "n1,x g g0 g-1 gnan g21 g1,0 g1, g1,2.5 g1,2,3 r1,0.5:2 r r-1 rx,1,1 r1:nan r1:-1 r1:2:3 "
        "h:80 hbox: hbox:0 hbox:70000 hbox:8x h hbox, h,box hbox,,rack hssh:// hssh://u@ "
        "hssh://box: "
        "hssh://box:0 hssh://box/x hssh://-oProxyCommand=x hssh://u@-v hssh://box/1/2 hssh://a?b");
    for (std::string strBad; aBad >> strBad;)
        EXPECT_FALSE(Parse(strBad[0], strBad.substr(1))) << strBad;
    ASSERT_TRUE(Parse('h', "box,[::1]:65535, [::1] ,ssh://me@box:22/7,ssh://[::1],ssh://box/9"));
    std::string strRead;
    for (const ServerName& r : vaServers)
        strRead += Format("%s %d%s,", r.strHost.c_str(), r.usPort, r.bSsh ? " ssh" : "");
    EXPECT_EQ(strRead,
              "box 20248,::1 65535,::1 20248,ssh://me@box:22 7 ssh,ssh://[::1] 20248 ssh,"
              "ssh://box 9 ssh,");
}

}  // namespace
}  // namespace talven::test
