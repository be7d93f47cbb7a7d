// Kernels that resample and compare projections.

#include "tests/device/Rig.h"

namespace
{
using Six = std::array<float, 6>;
constexpr Six g_afIdentity = {1, 0, 0, 1, 0, 0}, g_afPlain = {1, 0, INFINITY, 0, 0, 0};

struct Case
{
    int iX, iY, iMeasuredX, iMeasuredY;
    Six afMatrix, afScale;
    bool bLog = false, bBad = false;
};
constexpr float g_fCos = 0.9998477f, g_fSin = 0.0174524f, g_fMost = 3.4e38f;
constexpr Six g_afCapped = {1, 0, 6, 1, 1, 1000},
              g_afTurned = {-2, 1, INFINITY, -INFINITY, 1, 1000};
const Case g_aCases[] = {
    {257, 5, 257, 5, g_afIdentity, g_afPlain},
    {300, 3, 300, 3, {1, 0, 0, 1, 0.5f, 0}, g_afPlain},
    {257, 4, 257, 4, {1, 0, 0, 1, 0, 0.5f}, {2, 1, 100, 0, 0, 0}},
    {256, 5, 300, 7, {1, 0, 0, 1, -3.25f, -1.5f}, {1, 0, 1, 0, 0, 0}},
    {100, 90, 101, 80, {g_fCos, g_fSin, -g_fSin, g_fCos, 1.3f, -2.7f}, g_afPlain},
    {255, 20, 64, 33, {-0.25f, 0, 0, 1.5f, 63, 0}, g_afPlain},
    {1, 30, 1, 30, {1, 0, 0, 1, 0, 0.5f}, g_afPlain},
    {17, 4, 3, 2, {0.1f, 0, 0, 0.3f, 0, 0}, g_afPlain},
    {300, 9, 290, 9, {1, 0, 0, 1, 0.5f, 0}, {1, 0, INFINITY, -INFINITY, 1, 1000}, true},
    {65, 9, 65, 9, g_afIdentity, {2, -1, 0.5f, 0.25f, -2, 3}, true},
    {40, 10, 33, 9, {g_fMost, 0, 0, g_fMost, 0, 0}, g_afPlain},
    {40, 10, 33, 9, {-g_fMost, g_fMost, g_fMost, -g_fMost, 1, 1}, g_afPlain},
    {40, 10, 33, 9, {1, 0, 0, 1, -g_fMost, NAN}, g_afPlain},
    // A pixel that no position but its own reads is the business of its own position alone.
    {33, 6, 33, 6, g_afIdentity, g_afPlain, false, true},
    {5, 6, 5, 6, {1, 0, 0, 1, -2, 1}, g_afCapped, false, true},
    {70, 6, 70, 6, {1, 0, 0, 1, -2, 1}, g_afTurned, true, true},
    {70, 6, 70, 6, {1, 0, 0, 1, 0.5f, 0}, g_afPlain, false, true},
    {16, 6, 16, 6, {1, 0, 0, 1, 0.5f, 0}, g_afCapped, true, true},
    {33, 6, 33, 6, {1, 0, 0, 1, 0, 0.25f}, g_afTurned, false, true},
    {16, 6, 16, 6, {1, 0, 0, 1, 0, 0.25f}, g_afPlain, true, true}};
}  // namespace

TEST_P(Kernel, TransformFollowsTheFormula)
{
    for (const Case& rC : g_aCases)
    {
        if (rC.bBad && mFilters()) continue;  // weights of 0 are the texture unit's business
        SCOPED_TRACE(testing::Message() << "case " << &rC - g_aCases);
        Images aMeasured = RandomImages(rC.iMeasuredX, rC.iMeasuredY, 1, 0.01f, 2);
        for (std::size_t i = 0; rC.bBad && i < aMeasured.vf.size(); i += 4)
            aMeasured.vf[i] = std::array{INFINITY, -INFINITY, NAN, -1e30f, 1e20f}[i / 4 % 5];
        CRig aRig;
        const Images aBefore(rC.iX, rC.iY, 1, 7);
        TransformParams aP = {aRig.Buffer(aBefore),
                              aRig.Buffer(aBefore),
                              aRig.Lent(aMeasured),
                              {},
                              {},
                              rC.bLog,
                              rC.iX,
                              2,
                              rC.iY - 2};
        std::ranges::copy(rC.afMatrix, aP.afMatrix);
        std::ranges::copy(rC.afScale, aP.afScale);
        ASSERT_TRUE(GetBackend()->Transform(aP));
        const Images aGot = CRig::Read(aP.aOut, 1), aMiss = CRig::Read(aP.aMiss, 1);
        const Values vdExpected = TransformImage({rC.afMatrix, rC.afScale, rC.bLog, mFilters()},
                                                 aMeasured, 0, rC.iX, rC.iY);
        // The texture unit may take the next weight of 8 bits. What is only copied keeps its bits.
        const double dTolerance = &rC == g_aCases ? 0 : mFilters() ? 2e-2 : 1e-6;
        for (int i = 0; i < rC.iX * rC.iY; ++i)
        {
            const float fGot = aGot.vf[i];
            const double dExpected = i < rC.iX * (rC.iY - 2) ? vdExpected[i + 2 * rC.iX] : 7;
            ASSERT_EQ(aMiss.vf[i], std::isnan(dExpected) ? 1 : dExpected == 7 ? 7 : 0) << i;
            if (fGot == dExpected) continue;
            if (std::isnan(dExpected))  // a bad pixel at the edge stays what it is
                ASSERT_FALSE(std::fabs(fGot) < 1e29f) << i << " " << fGot;
            else
                ASSERT_NEAR(fGot, dExpected, dTolerance * (1 + std::fabs(dExpected))) << i;
        }
    }
}

TEST_P(Kernel, CompareSumsTheRows)
{
    for (const auto& [iX, iRows] :
         {std::pair{1, 1}, {15, 4}, {16, 3}, {255, 2}, {256, 3}, {257, 2}, {3000, 5}})
    {
        const Images aA = RandomImages(iX, iRows, 1, -1, 2, 1);
        Images aB = RandomImages(iX, iRows, 1, -1, 3, 2), aMiss(iX, iRows, 1);
        for (std::size_t i = iX; i < aB.vf.size(); i += 3) aB.vf[i] = -1e30f, aMiss.vf[i] = 1;
        CRig aRig;
        const DeviceImage aSums = aRig.Buffer(Images(iRows + 2, eCompareSums, 1, -1));
        ASSERT_TRUE(GetBackend()->CompareSums(
            {aSums, aRig.Lent(aA), aRig.Buffer(aB), aRig.Buffer(aMiss), iX, 1, iRows}));
        const Images aGot = CRig::Read(aSums, 1);
        for (int y = 0; y < iRows; ++y)
        {
            Values vdB;
            for (int x = 0; x < iX; ++x)
                vdB.push_back(aMiss.At(x, y, 0) > 0 ? NAN : aB.At(x, y, 0));
            const AlignSums aExpected = SumImages(aA.Nth(0).subspan(std::size_t(y) * iX), vdB);
            for (int q = 0; q < eCompareSums; ++q)  // partial sums, then halves: little rounding
                EXPECT_NEAR(aGot.At(1 + y, q, 0), aExpected.ad[g_aiAlignSums[q]],
                            6e-7 * aExpected.adSize[g_aiAlignSums[q]])
                    << iX << " x " << iRows << ", quantity " << q << " row " << y;
        }
        for (int q = 0; q < eCompareSums; ++q)
            EXPECT_EQ(aGot.At(0, q, 0) + aGot.At(iRows + 1, q, 0), -2) << "rows beside them";
    }
}
