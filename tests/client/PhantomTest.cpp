#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "talven/Phantom.h"

namespace talven::test
{
namespace
{

/// The line integral of detector point (dU, dY), by small steps along the ray through the volume.
double Integrate(const CEllipsoid& rEllipsoid, double dAngle, double dU, double dY)
{
    const double dCos = std::cos(dAngle * std::numbers::pi / 180);
    const double dSin = std::sin(dAngle * std::numbers::pi / 180);
    constexpr double dStep = 1e-3;
    double dLength = 0;
    for (double t = -60; t < 60; t += dStep)
        dLength +=
            rEllipsoid.Contains({dU * dCos - t * dSin, dY, dU * dSin + t * dCos}) ? dStep : 0;
    return dLength;
}

TEST(Phantom, ProjectionsAreLineIntegrals)
{
    const CEllipsoid aEllipsoid({4, -3, 6}, {12, 7, 9}, 35, -20, 1);
    constexpr int iX = 61, iY = 40;
    const CPhantomModel aModel(iX, iY, 50, {aEllipsoid});
    std::vector<float> vfPixels(iX * iY);
    for (const double dAngle : {-60.0, 0.0, 37.0, 90.0, 135.0})
    {
        aModel.MakeProjection(dAngle, vfPixels);
        // The mean over a pixel differs from its centre by curvature only, away from the edge.
        const double dRadian = dAngle * std::numbers::pi / 180;
        const int iCentre = static_cast<int>(
            std::lround(0.5 * (iX - 1) + 4 * std::cos(dRadian) + 6 * std::sin(dRadian)));
        for (const int iX0 : {iCentre - 3, iCentre, iCentre + 3})
            for (const int iY0 : {15, 17})
                EXPECT_NEAR(
                    vfPixels[std::size_t(iY0 * iX + iX0)],
                    Integrate(aEllipsoid, dAngle, iX0 - 0.5 * (iX - 1), iY0 - 0.5 * (iY - 1)), 0.12)
                    << dAngle << " degrees, pixel " << iX0 << ", " << iY0;
        double dMass = 0;
        for (const float fPixel : vfPixels) dMass += fPixel;
        EXPECT_NEAR(dMass, 4.0 / 3 * std::numbers::pi * 12 * 7 * 9, 10) << dAngle << " degrees";
    }
}

TEST(Phantom, TruthHasTheVolumeAndThePlaceOfItsEllipsoids)
{
    const CPhantomModel aModel(40, 31, 20, {CEllipsoid({5, -4, 2}, {8, 6, 5}, 0, 0, 2)});
    std::vector<float> vfSection(40 * 31);
    double dMass = 0, dX = 0, dY = 0, dZ = 0;
    for (int z = 0; z < 20; ++z)
    {
        aModel.MakeSection(z, vfSection);
        for (int i = 0; i < 40 * 31; ++i)
        {
            const double dPixel = vfSection[std::size_t(i)];
            dMass += dPixel;
            dX += dPixel * (i % 40 - 19.5);
            dY += dPixel * (i / 40 - 15.0);
            dZ += dPixel * (z - 9.5);
        }
    }
    EXPECT_NEAR(dMass, 2 * 4.0 / 3 * std::numbers::pi * 8 * 6 * 5, 20);
    EXPECT_NEAR(dX / dMass, 5, 0.02);
    EXPECT_NEAR(dY / dMass, -4, 0.02);
    EXPECT_NEAR(dZ / dMass, 2, 0.02);
}

TEST(Phantom, SpecimenIsChosenByTheSeedAndStaysInside)
{
    std::vector<float> vfFirst(96 * 80), vfSame(96 * 80), vfOther(96 * 80);
    CPhantomModel(96, 80, 48, 8, 1).MakeProjection(0, vfFirst);
    CPhantomModel(96, 80, 48, 8, 1).MakeProjection(0, vfSame);
    CPhantomModel(96, 80, 48, 8, 2).MakeProjection(0, vfOther);
    EXPECT_EQ(vfFirst, vfSame);
    EXPECT_NE(vfFirst, vfOther);
    for (int x = 0; x < 96; ++x)
    {
        EXPECT_EQ(vfFirst[std::size_t(x)], 0) << "row 0";
        EXPECT_EQ(vfFirst[std::size_t(79 * 96 + x)], 0) << "row 79";
    }
}

TEST(Phantom, NoiseHasItsMoments)
{
    CNoise aNoise(7);
    for (const double dMean : {0.5, 12.0, 400.0})
    {
        constexpr int iCount = 20000;
        double dSum = 0, dSquares = 0;
        for (int i = 0; i < iCount; ++i)
        {
            const double dValue = aNoise.GetPoisson(dMean);
            dSum += dValue;
            dSquares += dValue * dValue;
        }
        const double dAverage = dSum / iCount;
        EXPECT_NEAR(dAverage, dMean, 5 * std::sqrt(dMean / iCount));
        EXPECT_NEAR(dSquares / iCount - dAverage * dAverage, dMean, 0.06 * dMean);
    }
    EXPECT_EQ(aNoise.GetPoisson(0), 0);
}

}  // namespace
}  // namespace talven::test
