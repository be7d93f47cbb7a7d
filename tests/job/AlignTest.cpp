// Transforms and comparisons of bands of whole projections.

#include "gpulib/App/Align/Compare.h"
#include "gpulib/App/Align/Transform.h"
#include "gpulib/App/Job.h"
#include "tests/device/Rig.h"
#include "tests/job/JobRunner.h"

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
    {3000, 90, 3000, 80, {1, 0, 0, 1, -4.25f, -3}, {1, 0, 9, 0.1f, 2, 3}, true},  // in pieces
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

/// First valid column of a transformed row and one past the last one; 0 and 0 when there is none.
std::array<unsigned, 2> FindRange(std::span<const double> dRow)
{
    const auto IsValid = [](double dValue) { return !std::isnan(dValue); };
    const auto pFirst = std::ranges::find_if(dRow, IsValid);
    if (pFirst == dRow.end()) return {0, 0};
    const auto pLast = std::find_if(dRow.rbegin(), dRow.rend(), IsValid);
    return {unsigned(pFirst - dRow.begin()), unsigned(dRow.rend() - pLast)};
}
}  // namespace

TEST_P(Kernel, AlignedBandsFollowTheFormula)
{
    for (const Case& rC : g_aCases)
    {
        Images aMeasured = RandomImages(rC.iMeasuredX, rC.iMeasuredY, 2, 0.01f, 2);
        for (std::size_t i = 0; rC.bBad && i < aMeasured.vf.size(); i += 4)
            aMeasured.vf[i] = std::array{INFINITY, -INFINITY, NAN, -1e30f, 1e20f}[i / 4 % 5];
        const Images aStack = RandomImages(rC.iX, rC.iY, 3, 0.5f, 2, 2);
        const Values vdTransed =
            TransformImage({rC.afMatrix, rC.afScale, rC.bLog}, aMeasured, 1, rC.iX, rC.iY);
        Util_Volume aMProjs, aProjs;
        Load(aMProjs, rC.iMeasuredX, rC.iMeasuredY, aMeasured.vf);
        for (const auto& [iStart, iEnd] :
             {std::pair{0, rC.iY / 2}, {rC.iY / 4, rC.iY}, {rC.iY - 1, rC.iY}, {2, 2}})
        {
            SCOPED_TRACE(testing::Message()
                         << "case " << &rC - g_aCases << ", rows " << iStart << " to " << iEnd);
            Load(aProjs, rC.iX, rC.iY, aStack.vf);
            std::vector<unsigned> vuiRange(2 * rC.iY, 9);
            const AlignJob aJob = {&aMProjs, 1,           &aProjs,    2,
                                   vuiRange, rC.afMatrix, rC.afScale, rC.bLog};
            const JobShare aShare = {.iStartY = iStart, .iSizeY = iEnd - iStart};
            CCompare aCompare(aJob);
            ASSERT_TRUE(aCompare.DoIt(aShare) && CTransform(aJob).DoIt(aShare));

            const std::size_t tFirst = std::size_t(iStart) * rC.iX;
            const std::span dRows(&vdTransed[0] + tFirst, std::size_t(iEnd - iStart) * rC.iX);
            const AlignSums aSums =
                SumImages(aStack.Nth(2).subspan(tFirst), {dRows.begin(), dRows.end()});
            for (int q = 0; q < eCompareSums && !rC.bBad; ++q)
                EXPECT_NEAR(aCompare.GetTotals()[q], aSums.ad[g_aiAlignSums[q]],
                            6e-7 * aSums.adSize[g_aiAlignSums[q]])
                    << "quantity " << q;

            Values vdExpected(aStack.vf.begin(), aStack.vf.end());
            std::ranges::copy(dRows, &vdExpected[2 * aStack.GetPixels() + tFirst]);
            const double dTolerance = &rC == g_aCases ? 0 : 1e-6;  // copies keep their bits
            for (std::size_t i = 0; i < vdExpected.size(); ++i)
            {
                const float fGot = aProjs.GetData()[i];
                // A bad pixel at the edge stays what it is beyond it.
                const bool bMissing = rC.bBad ? !(std::fabs(fGot) < 1e29f) : fGot == -1e30f;
                if (fGot == vdExpected[i] || (bMissing && std::isnan(vdExpected[i]))) continue;
                ASSERT_NEAR(fGot, vdExpected[i], dTolerance * (1 + std::fabs(vdExpected[i]))) << i;
            }
            // The first rows of a band keep their ranges, as many as there are before it.
            std::vector<unsigned> vuiExpected(2 * rC.iY, 9);
            for (int y = 2 * iStart; y < iEnd; ++y)
                std::ranges::copy(
                    FindRange({&vdTransed[std::size_t(y) * rC.iX], std::size_t(rC.iX)}),
                    &vuiExpected[2 * y]);
            EXPECT_EQ(vuiRange, vuiExpected);
        }
    }
}

// For the Kernel tests of this program.
INSTANTIATE_TEST_SUITE_P(Backends, Kernel, testing::ValuesIn(GetTestBackends()),
                         [](const auto& rInfo) { return rInfo.param; });
