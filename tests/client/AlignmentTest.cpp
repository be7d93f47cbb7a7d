#include <gtest/gtest.h>

#include <cmath>
#include <numeric>

#include "Files.h"
#include "talven/Schedule.h"
#include "talven/SectionMaps.h"

namespace talven::test
{
namespace
{

TEST(Alignment, MatricesSurviveAFile)
{
    const CTempDir aDir;
    const std::vector<Affine> aMatrices = {g_aIdentity, {0.1f, -1e-7f, 1e20f, 3, -2.5f, 1 / 3.0f}};
    std::vector<Affine> aRead;
    std::string strError;
    ASSERT_TRUE(WriteMatrices(aDir / "m.txt", aMatrices, strError)) << strError;
    ASSERT_TRUE(ReadMatrices(aDir / "m.txt", aRead, strError)) << strError;
    EXPECT_EQ(aRead, aMatrices);

    WriteFile(aDir / "m.txt", "# drift\n\n 1,0, 0 ,1,\t+2.5 -3 # first\r\n1 0 0 1 0 0");
    ASSERT_TRUE(ReadMatrices(aDir / "m.txt", aRead, strError)) << strError;
    EXPECT_EQ(aRead, (std::vector<Affine>{{1, 0, 0, 1, 2.5, -3}, g_aIdentity}));
    for (const char* pcBad : {"", "# none\n", "1 0 0 1 0\n", "1 0 0 1 0 0 0\n", "1 0 0 1 0 nan\n",
                              "1 0 0 1 0 1e99\n", "1 0 0 1 0 0x\n", "1-0 0 1 0 0\n"})
    {
        WriteFile(aDir / "m.txt", pcBad);
        EXPECT_FALSE(ReadMatrices(aDir / "m.txt", aRead, strError)) << pcBad;
        EXPECT_EQ(aRead.size(), 2u);
    }
    EXPECT_FALSE(ReadMatrices(aDir / "no.txt", aRead, strError));
}

TEST(Alignment, FiguresFollowFromTheSums)
{
    // a = 1 2 3 4, t = 2 4 6 9
    CompareSums aSums = {4, 11, 64, 10, 10, 30, 21, 21, 137, 0};
    EXPECT_NEAR(CalcCorrelation(aSums), 11.5 / std::sqrt(5 * 26.75), 1e-9);
    EXPECT_DOUBLE_EQ(CalcMeanDifference(aSums), 2.75);
    aSums.fTransedSqr = 21 * 21 / 4.0f;  // t is constant
    EXPECT_TRUE(std::isnan(CalcCorrelation(aSums)));
    EXPECT_TRUE(std::isnan(CalcCorrelation({})));
    EXPECT_TRUE(std::isnan(CalcMeanDifference({})));
}

TEST(Alignment, ParabolasHaveTheirPeaks)
{
    for (const double dPeak : {-0.4, 0.0, 0.3})
    {
        const auto At = [dPeak](double dX) { return 5 - 2 * (dX - dPeak) * (dX - dPeak); };
        EXPECT_NEAR(FitPeak(At(-1), At(0), At(1)), dPeak, 1e-12);
    }
    EXPECT_EQ(FitPeak(1, 1, 1), 0);
    EXPECT_EQ(FitPeak(0, 1, 2), 0) << "no peak here";
    EXPECT_EQ(FitPeak(std::nan(""), 1, 0), 0);
}

TEST(Alignment, TheKernelIsANormalisedGaussian)
{
    for (const auto& [dSigma, iSize] : {std::pair{0.1, 3}, {1.0, 7}, {1.1, 9}})
    {
        const GaussianKernel aKernel = MakeGaussianKernel(dSigma);
        ASSERT_EQ(aKernel.iSize, iSize);
        const auto tSize = static_cast<std::size_t>(iSize);
        ASSERT_EQ(aKernel.vfValues.size(), tSize * tSize * tSize);
        double dSum = 0;
        for (const float fValue : aKernel.vfValues) dSum += fValue;
        EXPECT_NEAR(dSum, 1, 1e-6);
        const std::size_t tMiddle = aKernel.vfValues.size() / 2;
        const double dMiddle = aKernel.vfValues[tMiddle];
        for (const std::size_t tNext : {tMiddle + 1, tMiddle - tSize, tMiddle + tSize * tSize})
            EXPECT_NEAR(aKernel.vfValues[tNext] / dMiddle, std::exp(-0.5 / dSigma / dSigma), 1e-6);
    }
}

TEST(Alignment, OriginsDifferByTheCentres)
{
    const Affine aTurn = {0, -1, 1, 0, 0.5, 0};  // a quarter turn
    const CSectionMaps aCentres({aTurn}, true, {5, 7}, {11, 21});
    const Affine aMap = aCentres.GetMap(0);
    EXPECT_EQ(aMap[0] * 2 + aMap[1] * 3 + aMap[4], 5.5f) << "the centre lies on the centre";
    EXPECT_EQ(aMap[2] * 2 + aMap[3] * 3 + aMap[5], 10);
    EXPECT_EQ(aCentres.GetOwnMap(0, 1, 2), (Affine{0, -1, 1, 0, 1.5, 2}));
    const CSectionMaps aCorners({g_aIdentity, aTurn}, false, {5, 7}, {11, 21});
    EXPECT_EQ(aCorners.GetMap(1, 1, 2), (Affine{0, -1, 1, 0, 1.5, 2}));
}

}  // namespace
}  // namespace talven::test
