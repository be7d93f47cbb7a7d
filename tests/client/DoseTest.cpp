// Weights by dose: what they leave of waves of every direction, at the edges and beside gaps.

#include <cmath>
#include <numbers>

#include "Support.h"
#include "talven/DoseFilter.h"

namespace talven::test
{
namespace
{

TEST(ClientDose, LeavesOfAWaveWhatTheCurveSays)
{
    // Nc at 1/10 and 1/4 per Angstrom, from the formula by hand.
    EXPECT_NEAR(CDoseFilter::GetCriticalDose(0.1, 300), 14.1394, 1e-3);
    EXPECT_NEAR(CDoseFilter::GetCriticalDose(0.25, 200), 0.8 * 5.2777, 1e-3);
    EXPECT_NEAR(CDoseFilter::GetCriticalDose(0.1, 120) / 14.1394, 0.571, 1e-3);

    const ImageSize aSize = {201, 151};
    const double dPixel = 2.5;
    for (const auto& [dX, dY] : {std::pair{0.05, 0.0}, {0.0, -0.2}, {0.12, 0.31}, {-0.4, 0.1}})
        for (const ViewDose aDose : {ViewDose{0, 3}, {90, 4}})
        {
            SCOPED_TRACE(testing::Message() << dX << " " << dY << " " << aDose.dPrior);
            Floats vfImage;
            for (int y = 0; y < aSize.iY; ++y)
                for (int x = 0; x < aSize.iX; ++x)
                    vfImage.push_back(
                        float(7 + 2 * std::cos(2 * std::numbers::pi * (dX * x + dY * y))));
            Floats vfRaw = vfImage;
            CDoseFilter(aSize, dPixel, 300).Run(vfImage, aDose);
            const double dK = std::hypot(dX, dY) / dPixel;
            const double dKept = std::exp(-(aDose.dPrior + aDose.dExposure / 2) / 2 /
                                          (0.24499 / std::pow(dK, 1.6649) + 2.8141));
            double dSum = 0;
            for (int i = 0; i < int(vfImage.size()); ++i)
            {
                const int x = i % aSize.iX, y = i / aSize.iX;
                const double dExpect = 7 + dKept * (double(vfRaw[std::size_t(i)]) - 7);
                dSum += double(vfImage[std::size_t(i)]);
                // A wave ends in a kink at the edges.
                const bool bInside = std::min({x, y, aSize.iX - x, aSize.iY - y}) > 40;
                ASSERT_NEAR(double(vfImage[std::size_t(i)]), dExpect, bInside ? 0.002 : 0.5) << i;
            }
            EXPECT_NEAR(dSum / double(vfImage.size()), 7, 0.02);
        }
}

TEST(ClientDose, KeepsEdgesFlatAndGapsMissing)
{
    // A ramp differs between its ends: a periodic view would ring there.
    const ImageSize aSize = {90, 75};
    const ImageSource Views = [&](int, std::span<float> fPixels, std::string&)
    {
        for (int i = 0; i < int(fPixels.size()); ++i)
            fPixels[std::size_t(i)] = i / aSize.iX < 3 || i % aSize.iX % 30 == 7
                                          ? -1e30f
                                          : float(i % aSize.iX + 2 * (i / aSize.iX));
        return true;
    };
    Floats vfView(aSize.GetPixels()), vfWhole = vfView;
    std::string strError;
    const std::vector<ViewDose> aDoses = {{0, 0}, {60, 2}};
    const ImageSource Weighed = WeighByDose(Views, aSize, 2, 300, aDoses);
    for (int iView = 0; iView < 2; ++iView)
    {
        ASSERT_TRUE(Weighed(iView, vfView, strError) && Views(iView, vfWhole, strError));
        for (std::size_t i = 0; i < vfView.size(); ++i)
        {
            ASSERT_EQ(IsMissing(vfView[i]), IsMissing(vfWhole[i])) << i;
            if (IsMissing(vfView[i])) continue;
            ASSERT_NEAR(vfView[i], vfWhole[i], iView == 0 ? 1e-4 : 5) << iView << " " << i;
        }
    }
}

}  // namespace
}  // namespace talven::test
