// What the alignment of a series is made of.

#include <algorithm>
#include <cmath>
#include <numbers>

#include "Support.h"
#include "talven/AlignGauge.h"
#include "talven/Anderson.h"
#include "talven/AxisCurve.h"
#include "talven/SeriesAlign.h"
#include "talven/ViewLevels.h"

namespace talven::test
{
namespace
{

constexpr double g_dDegree = std::numbers::pi / 180;

TEST(ClientSeriesAlign, AccelerationSolvesWhatStepsCrawlTo)
{
    constexpr std::size_t tSize = 6;
    const auto Step = [](std::size_t i, double dX)
    { return (0.02 + 0.15 * double(i)) * (3.0 - double(i) - dX); };
    std::vector<double> vdX(tSize), vdPlain(tSize), vdStep(tSize);
    CAnderson aAnderson(5);
    for (int n = 0; n < 16; ++n)
    {
        for (std::size_t i = 0; i < tSize; ++i)
        {
            vdStep[i] = Step(i, vdX[i]);
            vdPlain[i] += Step(i, vdPlain[i]);
        }
        vdX = aAnderson.Step(vdX, vdStep);
    }
    EXPECT_LT(vdPlain[0], 1) << "of 3: steps alone are slow";
    for (std::size_t i = 0; i < tSize; ++i) EXPECT_NEAR(vdX[i], 3.0 - double(i), 0.01) << i;
    EXPECT_EQ(aAnderson.Step(vdX, std::vector<double>(tSize, 0))[2], vdX[2]) << "already there";
}

TEST(ClientSeriesAlign, GaugeIsWhatMovesTheSpecimen)
{
    const std::vector<float> vfAngles = {-60, 30, 0, 15, -30, 60};
    const std::vector<int> viUsed = {0, 1, 2, 3, 4};
    std::vector<double> vdAcross, vdAlong, vdRest = {0.5, -1, 0, 0.25, 0.75, 40};
    for (const float fAngle : vfAngles)
    {
        vdAcross.push_back(7 * std::cos(fAngle * g_dDegree) - 3 * std::sin(fAngle * g_dDegree));
        vdAlong.push_back(4);
    }
    std::vector<double> vdMoved = vdAcross, vdUp = vdAlong;
    RemoveGauge(vfAngles, viUsed, vdAcross, vdAlong);
    for (std::size_t i = 0; i < vfAngles.size(); ++i)
    {
        EXPECT_NEAR(vdAcross[i], 0, 1e-9);
        EXPECT_NEAR(vdAlong[i], 0, 1e-9);
        vdMoved[i] += vdRest[i];
    }
    // The rest keeps no part of it in the used views; the wild one does not count.
    RemoveGauge(vfAngles, viUsed, vdMoved, vdUp);
    double dCos = 0, dSin = 0;
    for (const int i : viUsed)
    {
        dCos += vdMoved[std::size_t(i)] * std::cos(vfAngles[std::size_t(i)] * g_dDegree);
        dSin += vdMoved[std::size_t(i)] * std::sin(vfAngles[std::size_t(i)] * g_dDegree);
    }
    EXPECT_NEAR(dCos, 0, 1e-9);
    EXPECT_NEAR(dSin, 0, 1e-9);
    EXPECT_GT(vdMoved[5], 38);
}

TEST(ClientSeriesAlign, AxisIsWhereTheCurvePeaks)
{
    const auto Make = [](auto Score)
    {
        AxisCurve aCurve;
        for (const double d : {3.0, -1.0, 0.0, 1.0, 2.0, 1.4, 0.6, 4.0}) aCurve.Add(d, Score(d));
        aCurve.Fit(2);
        return aCurve;
    };
    const AxisCurve aPeak = Make([](double d) { return 5 - (d - 1.3) * (d - 1.3); });
    EXPECT_NEAR(aPeak.dBest, 1.3, 1e-9);
    EXPECT_FALSE(aPeak.bFlat || aPeak.IsBestAtEdge());
    EXPECT_LT(aPeak.dUncertainty, 1e-6);
    EXPECT_TRUE(std::ranges::is_sorted(aPeak.vdAngles));
    EXPECT_TRUE(aPeak.Has(0.6) && !aPeak.Has(0.7));
    EXPECT_TRUE(Make([](double d) { return d; }).IsBestAtEdge());
    const AxisCurve aLevel = Make([](double) { return 2.0; });
    EXPECT_TRUE(aLevel.bFlat && !aLevel.IsBestAtEdge());
    const AxisCurve aNoise = Make([](double d) { return std::sin(37 * d) - 0.001 * d * d; });
    EXPECT_TRUE(aNoise.bFlat) << aNoise.dBest << " +- " << aNoise.dUncertainty;
}

TEST(ClientSeriesAlign, LevelsKeepASlabsViewsConsistent)
{
    const ImageSize aSize = {40, 30};
    std::vector<float> vfAngles;
    Floats vfSlab, vfDot;
    for (int n = -5; n <= 5; ++n)
    {
        vfAngles.push_back(float(12 * n));
        const double dThick = 1 / std::cos(12 * n * g_dDegree);
        for (int i = 0; i < 40 * 30; ++i)
        {
            const bool bMiddle = std::abs(i % 40 - 20) < 6 && std::abs(i / 40 - 15) < 6;  // rows
            vfSlab.push_back(i == 7 ? -1e30f : float(100 + 20 * dThick + (i % 3 - 1)));
            vfDot.push_back(float(100 + 3 * n + (bMiddle ? 50 : 0)));
        }
    }
    bool bBeyond = false;
    const std::vector<double> vdSlab = FindLevels(aSize, vfAngles, true, vfSlab, bBeyond);
    EXPECT_TRUE(bBeyond);
    for (const double dLevel : vdSlab) EXPECT_NEAR(dLevel, -100, 0.1) << "one for all";
    // What is darker than the surroundings gets a layer over it.
    for (std::size_t i = 0; i < vfSlab.size(); i += 9) vfSlab[i] -= 25;
    const std::vector<double> vdDark = FindLevels(aSize, vfAngles, true, vfSlab, bBeyond);
    EXPECT_GT(vdDark[5], vdSlab[5] + 4);
    EXPECT_NEAR((vdDark[0] - vdSlab[0]) / (vdDark[5] - vdSlab[5]), 2, 0.3) << "at 60 and 0 degrees";

    const std::vector<double> vdDot = FindLevels(aSize, vfAngles, false, vfDot, bBeyond);
    EXPECT_FALSE(bBeyond);
    for (std::size_t n = 0; n < 11; ++n)
        EXPECT_NEAR(vdDot[n], -100 - 3 * (double(n) - 5), 1e-3) << "its own";
}

TEST(ClientSeriesAlign, PlacesPassFromPixelsToBlocksAndBack)
{
    const ViewPlaces aRaw = {30, {{5, -3}, {0, 0}}};
    const ImageSize aSize = {103, 62};  // 25 x 15 blocks of 4: 3 columns and 2 rows are left over
    const ViewPlaces aBinned = ToBinned(aRaw, aSize, 4);
    EXPECT_DOUBLE_EQ(aBinned.aViews[1].dX, 1.5 / 4);
    EXPECT_DOUBLE_EQ(aBinned.aViews[1].dY, 1.0 / 4);
    ViewPlaces aBack = ToRaw(aBinned, aSize, 4);
    EXPECT_NEAR(aBack.aViews[0].dX, 5, 1e-12);
    aBack.Move(0, 2, 0);  // across an axis at 30 degrees
    EXPECT_NEAR(aBack.aViews[0].dX, 5 + 2 * std::cos(30 * g_dDegree), 1e-12);
    EXPECT_NEAR(aBack.aViews[0].dY, -3 + 2 * std::sin(30 * g_dDegree), 1e-12);

    std::string strError;
    const std::vector<float> vfAngles = {-50, -20, 0, 10, 20, 50, 85};
    EXPECT_EQ(ChooseBins({512, 256}), (std::vector{4, 2}));
    EXPECT_EQ(ChooseBins({64, 56}), (std::vector{2, 1}));
    EXPECT_EQ(ChooseBins({500, 30}), std::vector{1});
    EXPECT_FALSE(CheckSeriesAlign({}, aSize, vfAngles, strError));
    EXPECT_EQ(strError, "angles: view 7 at 85 degrees: at most 80 either way, or isolated");
    EXPECT_TRUE(CheckSeriesAlign({.bIsolated = true}, aSize, vfAngles, strError)) << strError;
    for (const std::vector<int>& rBins : {std::vector{4}, {1, 2}})
        EXPECT_FALSE(
            CheckSeriesAlign({.viBins = rBins, .bIsolated = true}, aSize, vfAngles, strError));
}

}  // namespace
}  // namespace talven::test
