// Transforms and comparisons on every backend.

#include <algorithm>
#include <limits>

#include "Util/Util_Volume.h"
#include "gpulib/App/Align/Compare.h"
#include "gpulib/App/Align/Transform.h"
#include "gpulib/App/Job.h"
#include "tests/device/Rig.h"

namespace
{
using Six = std::array<float, 6>;
constexpr Six g_afIdentity = {1, 0, 0, 1, 0, 0};
constexpr float g_fMissing = -1.0e30f;

struct Result
{
    std::vector<float> vf;
    std::vector<unsigned> vuiRange;
};

void Load(Util_Volume& rVolume, int iX, int iY, const std::vector<float>& rData)
{
    rVolume.SetSize(iX, iY, 1);
    std::ranges::copy(rData, rVolume.GetData());
}

AlignJob MakeJob(Util_Volume& rMeasured, Util_Volume& rStack, const Six& rMatrix, const Six& rScale,
                 bool bLog)
{
    AlignJob aJob;
    aJob.pMProjs = &rMeasured;
    aJob.pProjs = &rStack;
    aJob.afMatrix = rMatrix;
    aJob.afScale = rScale;
    aJob.bLog = bLog;
    return aJob;
}

/// Rows [iStart, iStart + iRows) of a projection of iX x iY pixels of 7 with ranges of 9.
Result Transform(const Image& rMeasured, int iX, int iY, const Six& rMatrix, const Six& rScale,
                 bool bLog = false, int iStart = 0, int iRows = -1)
{
    Result aResult{std::vector<float>(std::size_t(iX) * iY, 7), std::vector<unsigned>(2 * iY, 9)};
    Util_Volume aMeasured, aStack;
    Load(aMeasured, rMeasured.iWidth, rMeasured.iHeight, rMeasured.vf);
    Load(aStack, iX, iY, aResult.vf);
    AlignJob aJob = MakeJob(aMeasured, aStack, rMatrix, rScale, bLog);
    aJob.uiRangeX = aResult.vuiRange;
    EXPECT_TRUE(CTransform(aJob).DoIt({.iStartY = iStart, .iSizeY = iRows < 0 ? iY : iRows}));
    aResult.vf.assign(aStack.GetData(), aStack.GetData() + aStack.GetVoxels());
    return aResult;
}

bool Compare(const Image& rMeasured, const Image& rAligned, const Six& rMatrix, const Six& rScale,
             CompareTotals& rTotals, bool bLog = false, int iStart = 0, int iRows = -1)
{
    Util_Volume aMeasured, aStack;
    Load(aMeasured, rMeasured.iWidth, rMeasured.iHeight, rMeasured.vf);
    Load(aStack, rAligned.iWidth, rAligned.iHeight, rAligned.vf);
    const AlignJob aJob = MakeJob(aMeasured, aStack, rMatrix, rScale, bLog);
    CCompare aCompare(aJob);
    if (!aCompare.DoIt({.iStartY = iStart, .iSizeY = iRows < 0 ? rAligned.iHeight : iRows}))
        return false;
    rTotals = aCompare.GetTotals();
    return true;
}

/// Bilinear value at (dU, dV), clamped at the edges, in double precision.
double Read(const Image& rImage, double dU, double dV)
{
    const auto Pixel = [&](double dX, double dY)
    {
        return double(rImage.At(0, int(std::clamp(dY, 0.0, rImage.iHeight - 1.0)),
                                int(std::clamp(dX, 0.0, rImage.iWidth - 1.0))));
    };
    dU = std::clamp(dU, 0.0, rImage.iWidth - 1.0);
    dV = std::clamp(dV, 0.0, rImage.iHeight - 1.0);
    const std::string& rBackend = testing::TestWithParam<std::string>::GetParam();
    const double dRight = RoundWeight(rBackend, dU - std::floor(dU));
    const double dBelow = RoundWeight(rBackend, dV - std::floor(dV));
    double dValue = 0;
    for (int j = 0; j < 2; ++j)
        for (int i = 0; i < 2; ++i)
            dValue += (i ? dRight : 1 - dRight) * (j ? dBelow : 1 - dBelow) *
                      Pixel(std::floor(dU) + i, std::floor(dV) + j);
    return dValue;
}

double Scale(double dValue, const Six& rScale, bool bLog)
{
    double dResult = rScale[0] * dValue + rScale[1];
    if (bLog) dResult = rScale[4] * std::log(rScale[5] / std::max<double>(rScale[3], dResult));
    return std::min<double>(rScale[2], dResult);
}

class Align : public Kernel
{
};
INSTANTIATE_TEST_SUITE_P(Sets, Align, testing::ValuesIn(GetTestBackends()),
                         [](const auto& rInfo) { return NameOf(rInfo.param); });

TEST_P(Align, IdentityCopiesWhateverStandsThere)
{
    for (const int iX : {1, 7, 100, 255, 256, 257, 300})
        for (const int iY : {1, 5})
        {
            Image aMeasured = RandomImage(iX, iY, 1, -5, 5);
            aMeasured.At(0, 0, 0) = g_fMissing;
            const Result aResult =
                Transform(aMeasured, iX, iY, g_afIdentity, {1, 0, 1e6f, 0, 0, 0});
            EXPECT_TRUE(SameBits(aResult.vf, aMeasured.vf)) << iX << " x " << iY;
            for (int y = 0; y < iY; ++y)
            {
                EXPECT_EQ(aResult.vuiRange[2 * y], 0u);
                EXPECT_EQ(aResult.vuiRange[2 * y + 1], unsigned(iX));
            }
        }
}

TEST_P(Align, FollowsTheFormula)
{
    constexpr float fCos = 0.9998477f, fSin = 0.0174524f;
    const struct
    {
        const char* pcWhat;
        int iX, iY, iMeasuredX, iMeasuredY;
        Six afMatrix, afScale;
        bool bLog;
    } aCases[] = {
        {"half a column", 300, 3, 300, 3, {1, 0, 0, 1, 0.5f, 0}, {1, 0, 100, 0, 0, 0}, false},
        {"half a row", 257, 4, 257, 4, {1, 0, 0, 1, 0, 0.5f}, {2, 1, 100, 0, 0, 0}, false},
        {"both, back", 256, 5, 300, 7, {1, 0, 0, 1, -3.25f, -1.5f}, {1, 0, 1, 0, 0, 0}, false},
        {"rotation",
         100,
         90,
         101,
         80,
         {fCos, fSin, -fSin, fCos, 1.3f, -2.7f},
         {1, 0, 9, 0, 0, 0},
         false},
        {"mirrored, magnified",
         255,
         20,
         64,
         33,
         {-0.25f, 0, 0, 1.5f, 63, 0},
         {1, 0, 9, 0, 0, 0},
         false},
        {"one column", 1, 30, 1, 30, {1, 0, 0, 1, 0, 0.5f}, {1, 0, 9, 0, 0, 0}, false},
        {"logarithm", 300, 9, 290, 9, {1, 0, 0, 1, 0.5f, 0}, {1, 0, 100, 1, 1, 1000}, true},
        {"logarithm, limited", 65, 9, 65, 9, {1, 0, 0, 1, 0, 0}, {2, -1, 0.5f, 0.25f, -2, 3}, true},
    };
    // Positions are floats: their error times the steepest slope, or one step of the weight.
    const double dTolerance = GetParam() == "cuda" ? 2e-2 : 3e-4;
    for (const auto& rC : aCases)
    {
        SCOPED_TRACE(rC.pcWhat);
        const Image aMeasured = RandomImage(rC.iMeasuredX, rC.iMeasuredY, 1, 0, 2);
        const Result aResult = Transform(aMeasured, rC.iX, rC.iY, rC.afMatrix, rC.afScale, rC.bLog);
        int iMissing = 0;
        for (int y = 0; y < rC.iY; ++y)
        {
            int iFirst = -1, iEnd = -1;
            for (int x = 0; x < rC.iX; ++x)
            {
                const Six& m = rC.afMatrix;
                const double dU = double(m[0]) * x + double(m[1]) * y + double(m[4]);
                const double dV = double(m[2]) * x + double(m[3]) * y + double(m[5]);
                const bool bMissing =
                    dU < 0 || dU > rC.iMeasuredX - 1 || dV < 0 || dV > rC.iMeasuredY - 1;
                const float fGot = aResult.vf[std::size_t(y) * rC.iX + x];
                iMissing += bMissing;
                if (bMissing)
                    ASSERT_EQ(fGot, g_fMissing) << "column " << x << " row " << y;
                else
                    ASSERT_NEAR(fGot, Scale(Read(aMeasured, dU, dV), rC.afScale, rC.bLog),
                                dTolerance)
                        << "column " << x << " row " << y;
                if (!bMissing && iFirst < 0) iFirst = x;
                if (!bMissing) iEnd = x + 1;
            }
            EXPECT_EQ(aResult.vuiRange[2 * y], unsigned(std::max(iFirst, 0))) << "row " << y;
            EXPECT_EQ(aResult.vuiRange[2 * y + 1], unsigned(std::max(iEnd, 0))) << "row " << y;
        }
        EXPECT_LT(iMissing, rC.iX * rC.iY);
    }
}

TEST_P(Align, LogarithmHasFloorAndLimit)
{
    Image aMeasured(5, 1, 1);
    aMeasured.vf = {10, 0, -7, 1e30f, std::nanf("")};
    const Result aResult = Transform(aMeasured, 5, 1, g_afIdentity, {1, 0, 6, 1, 1, 1000}, true);
    EXPECT_NEAR(aResult.vf[0], 4.6051702, 1e-6);
    EXPECT_EQ(aResult.vf[1], 6);  // ln(1000), limited
    EXPECT_EQ(aResult.vf[2], 6);
    if (GetBackend()->UsesHostMemory())  // GPUs multiply the NaN beside it with a weight of 0
    {
        EXPECT_NEAR(aResult.vf[3], std::log(1e-27), 1e-5);
    }
    EXPECT_EQ(aResult.vf[4], 6);
}

TEST_P(Align, NoMatrixReachesBeyondTheImage)
{
    const Image aMeasured = RandomImage(33, 9, 1, 1, 2);
    constexpr float fMost = std::numeric_limits<float>::max();
    for (const Six& rMatrix : {Six{fMost, 0, 0, fMost, 0, 0},
                               {-fMost, fMost, fMost, -fMost, 1, 1},
                               {0, 0, 0, 0, 4e9f, -4e9f},
                               {1, 0, 0, 1, -3e38f, 3e38f},
                               {fMost, -fMost, fMost, -fMost, 0, 0}})
    {
        const Result aResult = Transform(aMeasured, 40, 10, rMatrix, {1, 0, 9, 0, 0, 0});
        for (const float fValue : aResult.vf)
            ASSERT_TRUE(fValue == g_fMissing || (fValue >= 1 && fValue <= 2)) << fValue;
        CompareTotals aTotals;
        EXPECT_TRUE(
            Compare(aMeasured, RandomImage(40, 10, 1, 1, 2), rMatrix, {1, 0, 9, 0, 0, 0}, aTotals));
        EXPECT_LE(aTotals[eCompareCount], 10);  // pixel 0, or a row without rounding
    }
}

TEST_P(Align, BandsChangeTheirRowsAndTheRangesOfTheirLaterOnes)
{
    // 3000 columns: a band takes several pieces.
    const int iX = 3000, iY = 90;
    const Image aMeasured = RandomImage(iX, iY, 1, 0, 1);
    const Six afShift = {1, 0, 0, 1, -4, 0}, afScale = {1, 0, 9, 0, 0, 0};
    const Result aWhole = Transform(aMeasured, iX, iY, afShift, afScale);
    for (const auto& [iStart, iRows] : {std::pair{0, 50}, {20, 70}, {60, 30}, {5, 1}, {8, 0}})
    {
        SCOPED_TRACE(testing::Message() << iRows << " rows from " << iStart);
        const Result aBand = Transform(aMeasured, iX, iY, afShift, afScale, false, iStart, iRows);
        for (int y = 0; y < iY; ++y)
        {
            const bool bIn = y >= iStart && y < iStart + iRows;
            ASSERT_EQ(aBand.vf[std::size_t(y) * iX + 10],
                      bIn ? aWhole.vf[std::size_t(y) * iX + 10] : 7);
            const bool bRange = bIn && y >= 2 * iStart;
            ASSERT_EQ(aBand.vuiRange[2 * y], bRange ? 4u : 9u) << "row " << y;
            ASSERT_EQ(aBand.vuiRange[2 * y + 1], bRange ? unsigned(iX) : 9u) << "row " << y;
        }
    }
}

/// 256 partial sums by stride, then by halves.
float SumAsStated(const std::vector<float>& rValues)
{
    std::vector<float> vfSums(256, 0.0f);
    for (std::size_t t = 0; t < vfSums.size(); ++t)
        for (std::size_t i = t; i < rValues.size(); i += 256) vfSums[t] = rValues[i] + vfSums[t];
    for (std::size_t s = 128; s > 0; s /= 2)
        for (std::size_t t = 0; t < s; ++t) vfSums[t] += vfSums[t + s];
    return vfSums[0];
}

/// Contribution of one pixel to a sum.
float Term(int iQuantity, float fA, float fB, float fWeight)
{
    const float fWA = fWeight * fA, fWB = fWeight * fB;
    switch (iQuantity)
    {
    case eCompareDiff:
        return fWeight * std::abs(fA - fB);
    case eCompareCross:
        return fB * fWA;
    case eCompareCount:
        return fWeight;
    case eCompareAligned:
        return fWA;
    case eCompareAlignedAbs:
        return std::abs(fWA);
    case eCompareAlignedSqr:
        return fWA * fWA;
    case eCompareTransed:
        return fWB;
    case eCompareTransedAbs:
        return std::abs(fWB);
    default:
        return fWB * fWB;
    }
}

TEST_P(Align, SumsAgreeWithTheStatedOrder)
{
    const struct
    {
        int iX, iY, iStart, iRows;
        Six afMatrix;
        bool bLog;
    } aCases[] = {{1, 1, 0, 1, g_afIdentity, false},
                  {100, 40, 0, 40, {1, 0, 0, 1, 0.5f, -2.25f}, false},
                  {255, 3, 1, 2, {1, 0, 0, 1, -0.75f, 0}, false},
                  {256, 300, 0, 300, {0.999f, 0.02f, -0.02f, 0.999f, 3, 4}, false},
                  {257, 1, 0, 1, {1, 0, 0, 1, 5, 0}, false},
                  {300, 600, 7, 590, {1, 0, 0, 1, -17.5f, 1}, true},
                  {1030, 70, 0, 70, {1, 0, 0, 1, 0.25f, 0}, false}};
    for (const auto& rC : aCases)
    {
        SCOPED_TRACE(testing::Message() << rC.iX << " x " << rC.iY);
        const Image aMeasured = RandomImage(rC.iX, rC.iY, 1, 1, 2, 1);
        const Image aAligned = RandomImage(rC.iX, rC.iY, 1, -1, 2, 2);
        const Six afScale = {1.5f, -0.25f, 2.5f, 0.5f, 1, 4};
        const Result aTransed = Transform(aMeasured, rC.iX, rC.iY, rC.afMatrix, afScale, rC.bLog);
        CompareTotals aTotals;
        ASSERT_TRUE(Compare(aMeasured, aAligned, rC.afMatrix, afScale, aTotals, rC.bLog, rC.iStart,
                            rC.iRows));
        for (int q = 0; q < eCompareSums; ++q)
        {
            std::vector<float> vfRows, vfRow(rC.iX);
            double dExact = 0, dSize = 0;
            for (int y = rC.iStart; y < rC.iStart + rC.iRows; ++y)
            {
                for (int x = 0; x < rC.iX; ++x)
                {
                    const float fB = aTransed.vf[std::size_t(y) * rC.iX + x];
                    vfRow[x] = Term(q, aAligned.At(0, y, x), fB, fB < -1e15f ? 0 : 1);
                    dExact += double(vfRow[x]);
                    dSize += std::abs(double(vfRow[x]));
                }
                vfRows.push_back(SumAsStated(vfRow));
            }
            const float fStated = SumAsStated(vfRows);
            EXPECT_NEAR(aTotals[q], fStated, 1e-6 * dSize) << "quantity " << q;
            EXPECT_NEAR(aTotals[q], dExact, 1e-5 * dSize) << "quantity " << q;
            EXPECT_GT(dSize, 0);
        }
    }
}

TEST_P(Align, EqualImagesHaveNoDifferenceAndMissingOnesNoSums)
{
    const Image aImage = RandomImage(300, 40, 1, -1, 3);
    const Six afScale = {1, 0, 100, 0, 0, 0};
    CompareTotals aTotals;
    ASSERT_TRUE(Compare(aImage, aImage, g_afIdentity, afScale, aTotals));
    EXPECT_EQ(aTotals[eCompareDiff], 0);
    EXPECT_EQ(aTotals[eCompareCount], 300 * 40);
    EXPECT_EQ(aTotals[eCompareCross], aTotals[eCompareAlignedSqr]);
    EXPECT_EQ(aTotals[eCompareAligned], aTotals[eCompareTransed]);
    EXPECT_EQ(aTotals[eCompareAlignedAbs], aTotals[eCompareTransedAbs]);
    EXPECT_EQ(aTotals[eCompareAlignedSqr], aTotals[eCompareTransedSqr]);
    ASSERT_TRUE(Compare(aImage, aImage, {1, 0, 0, 1, 1000, 0}, afScale, aTotals));
    EXPECT_EQ(aTotals, CompareTotals());
}
}  // namespace
