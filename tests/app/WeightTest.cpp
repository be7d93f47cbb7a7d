// Weights of a box and of a kernel, before any device is asked.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <span>

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
    for (const auto& aiSize : {std::array{1, 1, 1}, {4, 1, 1}, {7, 5, 6}})
    {
        CGaussianKernel aGaussian;
        aGaussian.SetSize(aiSize.data());
        aGaussian.SetStd(afStd);
        aGaussian.Build();
        const std::span fKernel(aGaussian.GetKernel().GetData(), aGaussian.GetKernel().GetVoxels());
        EXPECT_NEAR(std::accumulate(fKernel.begin(), fKernel.end(), 0.0), 1, 1e-6);
        for (int i = 0; i < int(fKernel.size()); ++i)
        {
            double dSum = 0;
            for (int k = 0, iRest = i; k < 3; iRest /= aiSize[k++])
                dSum += std::pow((iRest % aiSize[k] - aiSize[k] / 2) / afStd[k], 2);
            EXPECT_NEAR(std::exp(-0.5 * dSum) * *std::ranges::max_element(fKernel) / fKernel[i], 1,
                        2e-6);
        }
    }
}
