// Transforms and comparisons of whole projections, in bands.

#include <gtest/gtest.h>

#include <random>

#include "Util/Util_Volume.h"
#include "gpulib/App/Align/Compare.h"
#include "gpulib/App/Align/Transform.h"
#include "gpulib/App/Job.h"
#include "gpulib/Device/Backend.h"
#include "tests/backends/Backends.h"
#include "tests/oracle/JobOracle.h"

namespace
{
constexpr int g_iX = 3000, g_iY = 90;  // a band takes several pieces

class AlignedBands : public testing::TestWithParam<std::string>
{
protected:
    void SetUp() override
    {
        SetBackend(MakeTestBackend(GetParam(), 1));
        if (!GetBackend()) GTEST_SKIP() << "no device for " << GetParam();
        ASSERT_TRUE(GetBackend()->SelectDevice(0));
        std::mt19937 aRandom(1);
        std::uniform_real_distribution<float> aValue(0.5f, 2);
        for (Images* pImages : {&m_aMeasured, &m_aStack})
            for (float& rfValue : pImages->vf) rfValue = aValue(aRandom);
        m_aOracle.bFilter = GetParam() == "cuda";
        mLoad(m_aMeasured, m_aMProjs);
        mLoad(m_aStack, m_aProjs);
        m_aJob.pMProjs = &m_aMProjs;
        m_aJob.iMProj = 1;
        m_aJob.pProjs = &m_aProjs;
        m_aJob.iAProj = 2;
        m_aJob.uiRangeX = m_vuiRange;
        m_aJob.afMatrix = m_aOracle.afMatrix;
        m_aJob.afScale = m_aOracle.afScale;
        m_aJob.bLog = m_aOracle.bLog;
    }
    void TearDown() override { SetBackend(nullptr); }
    static void mLoad(const Images& rImages, Util_Volume& rVolume)
    {
        rVolume.SetSize(rImages.iX, rImages.iY, rImages.iN);
        std::ranges::copy(rImages.vf, rVolume.GetData());
    }

    Images m_aMeasured{g_iX, 80, 2}, m_aStack{g_iX, g_iY, 3};
    OracleAlign m_aOracle{{1, 0, 0, 1, -4.25f, -3}, {1, 0, 9, 0.1f, 2, 3}, true};
    std::vector<unsigned> m_vuiRange = std::vector<unsigned>(2 * g_iY, 9);
    Util_Volume m_aMProjs, m_aProjs;
    AlignJob m_aJob;
};
INSTANTIATE_TEST_SUITE_P(Backends, AlignedBands, testing::ValuesIn(GetTestBackends()),
                         [](const auto& rInfo) { return NameOf(rInfo.param); });
}  // namespace

TEST_P(AlignedBands, ChangeTheirRowsAndTheRangesOfTheirLaterOnes)
{
    const Values vdExpected = TransformImage(m_aOracle, m_aMeasured, 1, g_iX, g_iY);
    for (const auto& [iStart, iRows] : {std::pair{0, 50}, {20, 70}, {60, 30}, {5, 1}, {8, 0}})
    {
        SCOPED_TRACE(testing::Message() << iRows << " rows from " << iStart);
        mLoad(m_aStack, m_aProjs);
        std::ranges::fill(m_vuiRange, 9);
        ASSERT_TRUE(CTransform(m_aJob).DoIt({.iStartY = iStart, .iSizeY = iRows}));
        Images aExpected = m_aStack;
        for (int y = 0; y < g_iY; ++y)
        {
            const bool bIn = y >= iStart && y < iStart + iRows;
            for (int x = 0; bIn && x < g_iX; ++x)
            {
                const double dValue = vdExpected[std::size_t(y) * g_iX + x];
                aExpected.At(x, y, 2) = std::isnan(dValue) ? -1e30f : float(dValue);
            }
            // The first rows of a band keep their ranges, as many as there are before it.
            const bool bRange = bIn && y >= 2 * iStart, bSeen = y >= 3 && y < 83;
            ASSERT_EQ(m_vuiRange[2 * y], !bRange ? 9u : bSeen ? 5u : 0u) << "row " << y;
            ASSERT_EQ(m_vuiRange[2 * y + 1], !bRange ? 9u : bSeen ? 3000u : 0u) << "row " << y;
        }
        for (std::size_t i = 0; i < aExpected.vf.size(); ++i)
            ASSERT_NEAR(m_aProjs.GetData()[i], aExpected.vf[i], m_aOracle.bFilter ? 2e-2 : 2e-6)
                << i;
    }
}

TEST_P(AlignedBands, SumTheirRows)
{
    constexpr int aiTerm[eCompareSums] = {7, 4, 8, 0, 5, 2, 1, 6, 3};  // of AlignSums
    const Values vdTransed = TransformImage(m_aOracle, m_aMeasured, 1, g_iX, g_iY);
    for (const auto& [iStart, iRows] : {std::pair{0, 90}, {31, 59}, {2, 1}, {8, 0}})
    {
        CCompare aCompare(m_aJob);
        ASSERT_TRUE(aCompare.DoIt({.iStartY = iStart, .iSizeY = iRows}));
        const auto pFirst = vdTransed.begin() + std::ptrdiff_t(iStart) * g_iX;
        const AlignSums aExpected =
            SumImages(m_aStack.Nth(2).subspan(std::size_t(iStart) * g_iX),
                      Values(pFirst, pFirst + std::ptrdiff_t(iRows) * g_iX));
        for (int q = 0; q < eCompareSums; ++q)
            EXPECT_NEAR(aCompare.GetTotals()[q], aExpected.ad[aiTerm[q]],
                        (m_aOracle.bFilter ? 1e-4 : 1e-6) * aExpected.adSize[aiTerm[q]])
                << iRows << " rows from " << iStart << ", quantity " << q;
    }
}
