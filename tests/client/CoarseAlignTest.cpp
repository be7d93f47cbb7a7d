// Views that were moved at random are brought together without markers.

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "Support.h"
#include "talven/CoarseAlign.h"
#include "talven/ImageMatch.h"
#include "talven/Phantom.h"

namespace talven::test
{
namespace
{

/// Value of an image at a place between pixels; 0 outside.
float Read(const Floats& rImage, const ImageSize& rSize, double dX, double dY)
{
    const int iX = int(std::floor(dX)), iY = int(std::floor(dY));
    float fSum = 0;
    for (int j = 0; j < 2; ++j)
        for (int i = 0; i < 2; ++i)
            if (iX + i >= 0 && iX + i < rSize.iX && iY + j >= 0 && iY + j < rSize.iY)
                fSum += float((1 - std::fabs(dX - iX - i)) * (1 - std::fabs(dY - iY - j))) *
                        rImage[std::size_t(iY + j) * std::size_t(rSize.iX) + std::size_t(iX + i)];
    return fSum;
}

/// A phantom's views, turned about the tilt axis and moved.
struct Moved
{
    ImageSize aSize{96, 90};
    std::vector<float> vfAngles;
    Floats vfViews;
    std::vector<std::array<double, 2>> vdPlaces;  // of the specimen's centre, from the view's
};

Moved MakeMoved(double dAxis, double dOutlier)
{
    Moved aMoved;
    const ImageSize& rSize = aMoved.aSize;
    const CPhantomModel aModel(rSize.iX, rSize.iY, 20, 12, 3);
    CNoise aNoise(5);
    const double dCos = std::cos(dAxis * std::numbers::pi / 180);
    const double dSin = std::sin(dAxis * std::numbers::pi / 180);
    Floats vfAligned(rSize.GetPixels());
    for (int n = 0; n < 31; ++n)
    {
        aMoved.vfAngles.push_back(float(-60 + 4 * ((7 * n) % 31)));  // not in their order
        aModel.MakeProjection(aMoved.vfAngles.back(), vfAligned);
        const double dMost = n % 10 == 4 ? dOutlier : 4;
        const double dX = dMost * (2 * aNoise.GetUniform() - 1);
        const double dY = dMost * (2 * aNoise.GetUniform() - 1);
        aMoved.vdPlaces.push_back({dX, dY});
        for (int y = 0; y < rSize.iY; ++y)
            for (int x = 0; x < rSize.iX; ++x)
            {
                const double dU = x - 0.5 * (rSize.iX - 1) - dX, dV = y - 0.5 * (rSize.iY - 1) - dY;
                aMoved.vfViews.push_back(Read(vfAligned, rSize,
                                              0.5 * (rSize.iX - 1) + dCos * dU + dSin * dV,
                                              0.5 * (rSize.iY - 1) - dSin * dU + dCos * dV) +
                                         float(aNoise.GetGaussian()));
            }
    }
    return aMoved;
}

TEST(ClientCoarseAlign, FindsRandomShifts)
{
    for (const double dAxis : {0.0, 12.5, -94.0})
    {
        Moved aMoved = MakeMoved(dAxis, 14);
        const std::size_t tPixels = aMoved.aSize.GetPixels();
        const std::size_t tBlank = 2;  // a view of nothing
        for (std::size_t i = 0; i < tPixels; ++i)
            aMoved.vfViews[tBlank * tPixels + i] = float(i % 7);
        std::vector<CoarseView> vViews;
        ASSERT_TRUE(AlignCoarsely(
            {.dTiltAxis = dAxis, .dHigh = 0.2}, aMoved.aSize, aMoved.vfAngles, aMoved.vfViews,
            [](int) { return true; }, vViews));
        const auto pFirst = std::ranges::find(aMoved.vfAngles, 0.0f) - aMoved.vfAngles.begin();
        double dSquares = 0;
        for (std::size_t n = 0; n < vViews.size(); ++n)
        {
            EXPECT_EQ(vViews[n].bGood, n != tBlank) << n << ", axis " << dAxis;
            if (n == tBlank) continue;
            const auto& rFirst = aMoved.vdPlaces[std::size_t(pFirst)];
            const double dX = vViews[n].aPlace.dX - (aMoved.vdPlaces[n][0] - rFirst[0]);
            const double dY = vViews[n].aPlace.dY - (aMoved.vdPlaces[n][1] - rFirst[1]);
            dSquares += dX * dX + dY * dY;
            EXPECT_LT(std::hypot(dX, dY), 2.5) << "view " << n << ", axis " << dAxis;
        }
        EXPECT_LT(std::sqrt(dSquares / double(vViews.size())), 1.2) << "axis " << dAxis;

        // The map takes the specimen's centre to the centre of the image, the axis to +Y.
        const ViewMap aMap = ViewPlaces{dAxis, {{3, -2}}}.MakeMaps()[0];
        EXPECT_NEAR(aMap.dA11 * 3 + aMap.dA12 * -2 + aMap.dX, 0, 1e-12);
        EXPECT_NEAR(aMap.dA21 * 3 + aMap.dA22 * -2 + aMap.dY, 0, 1e-12);
        const double dAxisX = -std::sin(dAxis * std::numbers::pi / 180);
        const double dAxisY = std::cos(dAxis * std::numbers::pi / 180);
        EXPECT_NEAR(aMap.dA11 * dAxisX + aMap.dA12 * dAxisY, 0, 1e-12);
        EXPECT_NEAR(aMap.dA21 * dAxisX + aMap.dA22 * dAxisY, 1, 1e-12);
    }
}

TEST(ClientCoarseAlign, LosesViewsOfNothing)
{
    const std::vector<float> vfAngles = {-4, 0, 4};
    for (const float fValue : {7.0f, -1e30f})
    {
        std::vector<CoarseView> vViews;
        int iCalls = 0;
        const Floats vfViews(3 * 40 * 30, fValue);
        ASSERT_TRUE(AlignCoarsely(
            {}, {40, 30}, vfAngles, vfViews, [&](int iDone) { return iDone == ++iCalls; }, vViews));
        EXPECT_TRUE(!vViews[0].bGood && vViews[1].bGood && !vViews[2].bGood);
        EXPECT_FALSE(AlignCoarsely(
            {}, {40, 30}, vfAngles, vfViews, [](int) { return false; }, vViews));
    }
    std::string strError;
    EXPECT_TRUE(CheckCoarseAngles(vfAngles, strError));
    EXPECT_FALSE(CheckCoarseAngles(std::vector<float>{0, 81}, strError));
    EXPECT_EQ(strError, "view 2 at 81 degrees: at most 80 either way");
}

TEST(ClientCoarseAlign, MatchesToAFractionOfAPixel)
{
    const ImageSize aSize = {75, 64};
    Floats vfImage, vfReference, vfWeights(aSize.GetPixels(), 1.0f);
    const auto Blobs = [&](double dX, double dY)
    {
        Floats vfPixels;
        for (int i = 0; i < 75 * 64; ++i)
        {
            const double dU = i % 75 - dX, dV = i / 75 - dY;  // whole rows
            const auto Blob = [&](double x, double y)
            { return std::exp(-((dU - x) * (dU - x) + (dV - y) * (dV - y)) / 40); };
            vfPixels.push_back(float(100 + 9 * Blob(30, 30) + 5 * Blob(41, 25) - 4 * Blob(33, 41)));
        }
        return vfPixels;
    };
    vfReference = Blobs(0, 0);
    vfImage = Blobs(5.3, -3.6);
    for (int i = 0; i < 75; ++i) vfImage[std::size_t(i)] = -1e30f;  // a row is missing
    TaperToMissing(vfImage, aSize, 0.1, vfWeights);
    EXPECT_EQ(vfWeights[10], 0);
    EXPECT_EQ(vfWeights[32 * 75 + 37], 1);
    CImageMatcher aMatcher(aSize, 0.01, 0.2);
    const ImageMatch aMatch = aMatcher.Find(vfImage, vfReference, vfWeights, 12);
    EXPECT_NEAR(aMatch.dX, 5.3, 0.15);
    EXPECT_NEAR(aMatch.dY, -3.6, 0.15);
    EXPECT_GT(aMatch.dCorrelation, 0.97);
    EXPECT_FALSE(aMatch.bAtLimit);
    EXPECT_TRUE(aMatcher.Find(vfImage, vfReference, vfWeights, 3).bAtLimit);
    EXPECT_EQ(
        aMatcher.Find(Floats(aSize.GetPixels(), 1.0f), vfReference, vfWeights, 5).dCorrelation, 0)
        << "nothing to see";
}

}  // namespace
}  // namespace talven::test
