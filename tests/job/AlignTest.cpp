// Transforms and comparisons of bands of whole projections.

#include <gtest/gtest.h>

#include "Util/Util_Volume.h"
#include "gpulib/App/Align/Compare.h"
#include "gpulib/App/Align/Transform.h"
#include "gpulib/App/Job.h"
#include "tests/backends/Backends.h"
#include "tests/job/JobRunner.h"

namespace
{
constexpr int g_iX = 3000, g_iY = 90;  // a band takes several pieces

class AlignedBands : public testing::TestWithParam<std::string>
{
};
INSTANTIATE_TEST_SUITE_P(Backends, AlignedBands, testing::ValuesIn(GetTestBackends()),
                         [](const auto& rInfo) { return NameOf(rInfo.param); });
}  // namespace

TEST_P(AlignedBands, ChangeAndSumTheirRows)
{
    SetBackend(MakeTestBackend(GetParam(), 1));
    if (!GetBackend()) GTEST_SKIP() << "no device for " << GetParam();
    ASSERT_TRUE(GetBackend()->SelectDevice(0));
    const Images aMeasured = RandomImages(g_iX, 80, 2, 0.5f, 2);
    const Images aStack = RandomImages(g_iX, g_iY, 3, 0.5f, 2, 2);
    const OracleAlign aAlign = {
        {1, 0, 0, 1, -4.25f, -3}, {1, 0, 9, 0.1f, 2, 3}, true, GetParam() == "cuda"};
    const Values vdTransed = TransformImage(aAlign, aMeasured, 1, g_iX, g_iY);
    Util_Volume aMProjs, aProjs;
    Load(aMProjs, g_iX, 80, 2, aMeasured.vf);
    for (const auto& [iStart, iRows] : {std::pair{0, 50}, {20, 70}, {60, 30}, {5, 1}, {8, 0}})
    {
        SCOPED_TRACE(testing::Message() << iRows << " rows from " << iStart);
        Load(aProjs, g_iX, g_iY, 3, aStack.vf);
        std::vector<unsigned> vuiRange(2 * g_iY, 9);
        const AlignJob aJob = {&aMProjs,       1,          &aProjs, 2, vuiRange, aAlign.afMatrix,
                               aAlign.afScale, aAlign.bLog};
        CCompare aCompare(aJob);
        ASSERT_TRUE(aCompare.DoIt({.iStartY = iStart, .iSizeY = iRows}) &&
                    CTransform(aJob).DoIt({.iStartY = iStart, .iSizeY = iRows}));
        const auto pFirst = vdTransed.begin() + std::ptrdiff_t(iStart) * g_iX;
        const Values vdRows(pFirst, pFirst + std::ptrdiff_t(iRows) * g_iX);
        const AlignSums aSums =
            SumImages(aStack.Nth(2).subspan(std::size_t(iStart) * g_iX), vdRows);
        for (int q = 0; q < eCompareSums; ++q)
            EXPECT_NEAR(aCompare.GetTotals()[q], aSums.ad[g_aiAlignSums[q]],
                        (aAlign.bFilter ? 1e-4 : 1e-6) * aSums.adSize[g_aiAlignSums[q]])
                << "quantity " << q;
        Images aExpected = aStack;
        for (std::size_t i = 0, k = std::size_t(2 * g_iY + iStart) * g_iX; i < vdRows.size();
             ++i, ++k)
            aExpected.vf[k] = std::isnan(vdRows[i]) ? -1e30f : float(vdRows[i]);
        EXPECT_LE(RelativeError(Unload(aProjs), aExpected.vf), aAlign.bFilter ? 1e-3 : 1e-6);
        for (int y = 0; y < g_iY; ++y)
        {
            // The first rows of a band keep their ranges, as many as there are before it.
            const bool bRange = y >= 2 * iStart && y < iStart + iRows, bSeen = y >= 3 && y < 83;
            ASSERT_EQ(vuiRange[2 * y], !bRange ? 9u : bSeen ? 5u : 0u) << "row " << y;
            ASSERT_EQ(vuiRange[2 * y + 1], !bRange ? 9u : bSeen ? 3000u : 0u) << "row " << y;
        }
    }
    SetBackend(nullptr);
}
