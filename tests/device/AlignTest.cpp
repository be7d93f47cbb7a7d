// Kernels that resample and compare projections.

#include "tests/device/Rig.h"

namespace
{
using Six = std::array<float, 6>;
constexpr Six g_afIdentity = {1, 0, 0, 1, 0, 0}, g_afPlain = {1, 0, INFINITY, 0, 0, 0};

/// Rows of iX columns from row iStart on, and whether they are missing.
std::pair<Images, Images> Transform(const OracleAlign& rAlign, const Images& rMeasured, int iX,
                                    int iRows, int iStart = 0)
{
    CRig aRig;
    TransformParams aP = {aRig.Buffer(Images(iX, iRows, 1, 7)),
                          aRig.Buffer(Images(iX, iRows, 1, 7)),
                          aRig.Lent(rMeasured),
                          {},
                          {},
                          rAlign.bLog,
                          iX,
                          iStart,
                          iRows};
    std::ranges::copy(rAlign.afMatrix, aP.afMatrix);
    std::ranges::copy(rAlign.afScale, aP.afScale);
    EXPECT_TRUE(GetBackend()->Transform(aP));
    return {CRig::Read(aP.aOut, 1), CRig::Read(aP.aMiss, 1)};
}

/// Sums of each row: [quantity][row].
Images SumRows(const Images& rA, const Images& rB, const Images& rMiss)
{
    CRig aRig;
    const CompareParams aP = {aRig.Buffer(Images(rA.iY + 2, eCompareSums, 1, -1)),
                              aRig.Lent(rA),
                              aRig.Buffer(rB),
                              aRig.Buffer(rMiss),
                              rA.iX,
                              1,
                              rA.iY};
    EXPECT_TRUE(GetBackend()->CompareSums(aP));
    return CRig::Read(aP.aSums, 1);
}

void ExpectOracle(const OracleAlign& rAlign, const Images& rMeasured, int iX, int iY,
                  double dTolerance)
{
    const auto [aGot, aMiss] = Transform(rAlign, rMeasured, iX, iY);
    const Values vdExpected = TransformImage(rAlign, rMeasured, 0, iX, iY);
    for (std::size_t i = 0; i < vdExpected.size(); ++i)
    {
        const float fGot = aGot.vf[i];
        const bool bMissing = std::isnan(vdExpected[i]);
        ASSERT_EQ(aMiss.vf[i], bMissing ? 1 : 0) << i;
        if (bMissing)  // a bad pixel at the edge stays what it is
            ASSERT_TRUE(fGot == -1e30f || !(std::fabs(fGot) < 1e29f)) << i << " " << fGot;
        else if (std::isinf(vdExpected[i]))
            ASSERT_EQ(fGot, vdExpected[i]) << i;
        else
            ASSERT_NEAR(fGot, vdExpected[i], dTolerance * (1 + std::fabs(vdExpected[i]))) << i;
    }
    const int iLower = iY / 2;  // a piece of the rows has the same bits
    EXPECT_TRUE(SameBits(Transform(rAlign, rMeasured, iX, iY - iLower, iLower).first.vf,
                         {aGot.vf.begin() + iLower * iX, aGot.vf.end()}));
}
}  // namespace

TEST_P(Kernel, TransformFollowsTheFormula)
{
    constexpr float fCos = 0.9998477f, fSin = 0.0174524f, fMost = 3.4e38f;
    const struct
    {
        int iX, iY, iMeasuredX, iMeasuredY;
        Six afMatrix, afScale;
        bool bLog;
    } aCases[] = {
        {300, 3, 300, 3, {1, 0, 0, 1, 0.5f, 0}, g_afPlain, false},
        {257, 4, 257, 4, {1, 0, 0, 1, 0, 0.5f}, {2, 1, 100, 0, 0, 0}, false},
        {256, 5, 300, 7, {1, 0, 0, 1, -3.25f, -1.5f}, {1, 0, 1, 0, 0, 0}, false},
        {100, 90, 101, 80, {fCos, fSin, -fSin, fCos, 1.3f, -2.7f}, g_afPlain, false},
        {255, 20, 64, 33, {-0.25f, 0, 0, 1.5f, 63, 0}, g_afPlain, false},
        {1, 30, 1, 30, {1, 0, 0, 1, 0, 0.5f}, g_afPlain, false},
        {15, 4, 40, 9, {1, 0, 0, 1, 2.5f, 3.75f}, g_afPlain, false},
        {17, 4, 3, 2, {0.1f, 0, 0, 0.3f, 0, 0}, g_afPlain, false},
        {300, 9, 290, 9, {1, 0, 0, 1, 0.5f, 0}, {1, 0, INFINITY, -INFINITY, 1, 1000}, true},
        {65, 9, 65, 9, g_afIdentity, {2, -1, 0.5f, 0.25f, -2, 3}, true},
        {40, 10, 33, 9, {fMost, 0, 0, fMost, 0, 0}, g_afPlain, false},
        {40, 10, 33, 9, {-fMost, fMost, fMost, -fMost, 1, 1}, g_afPlain, false},
        {40, 10, 33, 9, {1, 0, 0, 1, -fMost, NAN}, g_afPlain, false},
    };
    for (const auto& rC : aCases)
    {
        SCOPED_TRACE(testing::Message() << rC.iX << " x " << rC.iY << " of " << rC.iMeasuredX
                                        << " x " << rC.iMeasuredY);
        ExpectOracle({rC.afMatrix, rC.afScale, rC.bLog, mFilters()},
                     RandomImages(rC.iMeasuredX, rC.iMeasuredY, 1, 0.01f, 2), rC.iX, rC.iY,
                     // The texture unit may take the next weight of 8 bits.
                     mFilters() ? 2e-2 : 1e-6);
    }
}

// A pixel that no position but its own reads is the business of its own position alone. Only the
// texture unit knows what it makes of it.
TEST_P(Kernel, TransformKeepsBadPixelsToThemselves)
{
    if (mFilters()) GTEST_SKIP() << "weights of 0 are the texture unit's business";
    for (const int iX : {5, 16, 33, 70})
        for (const auto& [fShiftX, fShiftY] :
             {std::pair{0.0f, 0.0f}, {-2, 1}, {0.5f, 0}, {0, 0.25f}})
            for (const bool bLog : {false, true})
            {
                SCOPED_TRACE(testing::Message() << iX << ", " << fShiftX << ", " << fShiftY);
                Images aMeasured = RandomImages(iX, 6, 1, 1, 2);
                for (int i = 0; i < iX * 6; i += 4)
                    aMeasured.vf[i] =
                        std::array{INFINITY, -INFINITY, NAN, -1e30f, 1e20f}[i / 4 % 5];
                const Six afMatrix = {1, 0, 0, 1, fShiftX, fShiftY};
                for (const Six& rScale :
                     {g_afPlain, Six{1, 0, 6, 1, 1, 1000}, {-2, 1, INFINITY, -INFINITY, 1, 1000}})
                    ExpectOracle({afMatrix, rScale, bLog}, aMeasured, iX, 6, 1e-6);
            }
}

TEST_P(Kernel, IdentityCopiesTheBits)
{
    for (const int iX : {1, 7, 100, 257})
    {
        Images aMeasured = RandomImages(iX, 5, 1, -5, 5);
        aMeasured.vf[0] = -1e30f;
        aMeasured.vf[3] = -0.0f;
        EXPECT_EQ(Transform({g_afIdentity, g_afPlain}, aMeasured, iX, 5).first.vf, aMeasured.vf);
    }
}

TEST_P(Kernel, CompareSumsTheRows)
{
    constexpr int aiTerm[eCompareSums] = {7, 4, 8, 0, 5, 2, 1, 6, 3};  // of AlignSums
    for (const auto& [iX, iRows] :
         {std::pair{1, 1}, {15, 4}, {16, 3}, {255, 2}, {256, 3}, {257, 2}, {3000, 5}})
    {
        SCOPED_TRACE(testing::Message() << iX << " x " << iRows);
        const Images aA = RandomImages(iX, iRows, 1, -1, 2, 1);
        Images aB = RandomImages(iX, iRows, 1, -1, 3, 2), aMiss(iX, iRows, 1);
        for (std::size_t i = iX; i < aB.vf.size(); i += 3) aB.vf[i] = -1e30f, aMiss.vf[i] = 1;
        const Images aSums = SumRows(aA, aB, aMiss);
        for (int y = 0; y < iRows; ++y)
        {
            const std::size_t tRow = std::size_t(y) * iX;
            Values vdB(aB.vf.begin() + tRow, aB.vf.begin() + tRow + iX);
            for (double& rdB : vdB) rdB = rdB < -1e15 ? NAN : rdB;
            const AlignSums aExpected = SumImages(aA.Nth(0).subspan(tRow, iX), vdB);
            for (int q = 0; q < eCompareSums;
                 ++q)  // 256 partial sums, then halves: little rounding
                EXPECT_NEAR(aSums.At(1 + y, q, 0), aExpected.ad[aiTerm[q]],
                            6e-7 * aExpected.adSize[aiTerm[q]])
                    << "quantity " << q << " row " << y;
        }
        for (int q = 0; q < eCompareSums; ++q)
            EXPECT_EQ(aSums.At(0, q, 0) + aSums.At(iRows + 1, q, 0), -2) << "rows beside them";
        // In one row after the other as in all at once; equal images do not differ.
        EXPECT_EQ(SumRows(aA, aA, Images(iX, iRows, 1)).At(1, eCompareDiff, 0), 0);
    }
}
