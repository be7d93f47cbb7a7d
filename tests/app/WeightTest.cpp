// Weights of a box and of a kernel, before any device is asked.

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>

#include "gpulib/App/Weights/CalcWeightBase.h"
#include "server/Recon/GaussianKernel.h"

TEST(BoxWeight, FindsACornerTwice)
{
    CCalcWeightBase aBase;
    const std::vector<float> vfAngles = {45};
    aBase.SetBox({0, 0}, {10, 10});
    aBase.SetProjs(41, 1, vfAngles);
    aBase.Calculate();
    EXPECT_EQ(aBase.GetWeight()[20], 1) << "the ray through two of them";
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
        std::vector<double> vdExpected;
        for (int i = 0; i < iX * iY * iZ; ++i)
            vdExpected.push_back(
                std::exp(-0.5 * (Square(i % iX, iX, 1) + Square(i / iX % iY, iY, afStd[1]) +
                                 Square(i / iX / iY, iZ, 2))));
        const double dSum = std::accumulate(vdExpected.begin(), vdExpected.end(), 0.0);
        for (std::size_t i = 0; i < vdExpected.size(); ++i)
            EXPECT_NEAR(aGaussian.GetKernel().GetData()[i] * dSum / vdExpected[i], 1, 2e-6);
    }
}
