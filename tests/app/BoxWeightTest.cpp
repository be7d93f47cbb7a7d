#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "gpulib/App/Images/Textures.h"
#include "gpulib/App/Weights/CalcWeightBase.h"
#include "gpulib/App/Weights/CalcWeights.h"
#include "gpulib/Device/Backend.h"

namespace
{
constexpr int g_iProjX = 41;  // columns at u = -20 ... 20

std::vector<float> Lengths(std::array<float, 2> afCentre, std::array<float, 2> afSize, float fAngle)
{
    CCalcWeightBase aBase;
    aBase.SetBox(afCentre, afSize);
    aBase.SetProjs(g_iProjX, 1, {&fAngle, 1});
    aBase.Calculate();
    return aBase.GetWeight();
}
}  // namespace

TEST(BoxWeight, LengthsAcrossTheBox)
{
    for (int i = 0; i < g_iProjX; ++i)
    {
        const int iU = i - 20;
        SCOPED_TRACE(testing::Message() << "u " << iU);
        // Upright: the box spans its width, both ends included.
        EXPECT_EQ(Lengths({0, 0}, {20, 8}, 0)[i], std::abs(iU) <= 10 ? 8.0f : 1.0f);
        EXPECT_EQ(Lengths({0, 0}, {20, 8}, 90)[i], std::abs(iU) <= 4 ? 20.0f : 1.0f);
        EXPECT_EQ(Lengths({5, 0}, {20, 8}, 0)[i], iU >= -5 && iU <= 15 ? 8.0f : 1.0f);
        EXPECT_EQ(Lengths({0, 0}, {0, 0}, 33)[i], 1.0f);
        // Tilted by 60 degrees an endless slab is seen at twice its height.
        EXPECT_NEAR(Lengths({0, 0}, {2000, 8}, 60)[i], 16.0, 1e-5);
        EXPECT_NEAR(Lengths({0, 0}, {2000, 8}, -60)[i], 16.0, 1e-5);
        // A square on its corner. A ray right through a corner finds that corner twice.
        const double dDiagonal = 10 * std::sqrt(2.0);
        const double dExpect = iU == 0 ? 1.0 : std::max(dDiagonal - 2 * std::abs(iU), 1.0);
        EXPECT_NEAR(Lengths({0, 0}, {10, 10}, 45)[i], dExpect, 1e-5);
    }
}

// Pre-weight and projection weight as the kernels get them.
TEST(BoxWeight, TablesOfAJob)
{
    SetBackend(MakeHostBackend("", 1));
    const std::vector<float> vfAngles = {0, 60};
    struct Case
    {
        const char* pcName;
        std::vector<float> vfDim;  // half size
        float fPre0, fPre60;       // expected pre-weights of the central column
    };
    const Case aCases[] = {
        {"no box", {}, 12, 24},
        {"as the volume", {1000, 6}, 1, 1},
        {"half as high", {400, 3}, 2, 2},
        {"smaller than a pixel", {0.1f, 0.1f}, 12, 24},
        {"slab", {411, 3}, 2, 2},  // ten detector widths are 410
        {"slab without height", {411, 0}, INFINITY, INFINITY},
    };
    for (const Case& rCase : aCases)
    {
        SCOPED_TRACE(rCase.pcName);
        const float afOrig[2] = {0, 0};
        CTextures aTextures;
        CCalcWeights aWeights;
        aWeights.SetVolSize(2000, 12);
        aWeights.SetProjs(g_iProjX, 2, vfAngles);
        aWeights.SetTextures(&aTextures);
        aWeights.SetWeightBox(rCase.vfDim.empty() ? nullptr : afOrig,
                              rCase.vfDim.empty() ? nullptr : rCase.vfDim.data());
        ASSERT_TRUE(aWeights.DoIt());
        std::vector<float> vfPre(2 * g_iProjX), vfPrj(2 * g_iProjX);
        ASSERT_TRUE(GetBackend()->DownloadTable(aTextures.GetPreWeightArray(), vfPre.data()));
        ASSERT_TRUE(GetBackend()->DownloadTable(aTextures.GetProjWeightArray(), vfPrj.data()));
        EXPECT_FLOAT_EQ(vfPre[20], rCase.fPre0);
        EXPECT_FLOAT_EQ(vfPre[g_iProjX + 20], rCase.fPre60);
        EXPECT_FLOAT_EQ(vfPrj[20], 1 / 12.0f);
        EXPECT_FLOAT_EQ(vfPrj[g_iProjX + 20], 1 / 24.0f);
    }
}
