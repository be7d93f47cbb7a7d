// Kernels that stream over projection rows: weights, comparisons and sums.

#include "tests/device/Rig.h"

namespace
{
// Measured pixels, and weights or ray sums that they meet.
constexpr float g_afIn[] = {6, -1, 5, 0, 1, NAN, -0.0f, 3, -1e30f, 0, 8};
constexpr float g_afWith[] = {4, 2, 0, 2, NAN, 2, 4, -2, 1, 0, INFINITY};
}  // namespace

TEST_P(Kernel, RowsAreWeightedAndCompared)
{
    for (const auto& [iX, iRows] : {std::pair{1, 1}, {17, 3}, {16, 16}, {37, 9}, {19, 30}})
    {
        Images aIn = RandomImages(iX, 5, iRows, -2, 2), aWith = RandomImages(iX, 5, iRows, 1, 3, 2);
        for (std::size_t i = 0; 2 * i < aIn.vf.size(); ++i)
            aIn.vf[2 * i] = g_afIn[i % 11], aWith.vf[2 * i] = g_afWith[i % 11];
        CRig aRig;
        const DeviceImage aRaw = aRig.Array(aIn), aSums = aRig.Buffer(aWith);
        const DeviceImage aWeight = aRig.Array(Part(aWith, 0)), aList = aRig.List({4, 1, 3});
        for (int k = 0; k < 6; ++k)  // operations, in their order
        {
            const bool bWeight = k < 4;
            const Images aBefore(iX, 5, iRows, 77);
            const DeviceImage aOut = bWeight ? aRig.Buffer(aBefore) : aRig.Array(aBefore);
            ASSERT_TRUE(
                bWeight
                    ? GetBackend()->Weight({aOut, aRaw, aWeight, aList, EWeight(k), iX, 1, 3})
                    : GetBackend()->Combine({aOut, aRaw, aSums, aList, ECombine(k - 4), iX, 1, 3}));
            const Images aGot = CRig::Read(aOut, iRows);
            for (int i = 0; i < int(aGot.vf.size()); ++i)
            {
                const int n = i / iX % 5;
                const float fA = aIn.vf[i], fB = aWith.vf[bWeight ? i % (5 * iX) : i];
                const float fRatio = fA >= 0 && fB != 0 ? fA / fB : 1;
                const float afRules[] = {fA, fA * fB, fA * fB, fA / fB, fA - fB, fRatio};
                const float fExpected = n == 1 || n == (k > 1 ? 3 : 2) ? afRules[k] : 77;
                ASSERT_TRUE(aGot.vf[i] == fExpected ||
                            (std::isnan(aGot.vf[i]) && std::isnan(fExpected)))
                    << iX << " x " << iRows << ", operation " << k << ": " << aGot.vf[i] << " for "
                    << fA << " and " << fB << ", projection " << n;
            }
        }
    }
}

TEST_P(Kernel, SumsRepeatTheLastColumnAndSkipMissing)
{
    for (const auto& [iX, iRows] : {std::pair{1, 1}, {300, 3}, {256, 16}, {257, 5}, {31, 29}})
    {
        TestJob aJob;
        aJob.iProjX = iX;
        aJob.vfAngles.resize(4);
        aJob.vuiList = {3, 0};
        Images aRows = RandomImages(iX, 4, iRows, -3, 2);
        aRows.At(iX / 2, 3, 0) = -1e15f;  // missing
        aRows.At(iX / 3, 0, iRows - 1) = NAN;
        CRig aRig;
        SumAbsParams aP = {
            aRig.Array(aRows), aRig.Doubles(2, 3), aRig.List(aJob.vuiList), iX, 2, 2, iRows};
        ASSERT_TRUE(GetBackend()->SumAbs(aP));
        aP.iIter = 1;  // one row at a time: the same bits
        aP.iRows = 1;
        Values vdExpected(2), vdGot(6);
        for (int r = 0; r < iRows; ++r)
        {
            aP.aSource = aRig.Array(Part(aRows, r));
            ASSERT_TRUE(GetBackend()->SumAbs(aP));
            const Values vdSums = COracle(aJob).SumAbs(aRows.GetValues(r));
            for (int p = 0; p < 2; ++p) vdExpected[p] += vdSums[p];
        }
        ASSERT_TRUE(GetBackend()->DownloadTable(aP.aAccum, vdGot.data()));
        for (int p = 0; p < 2; ++p)
        {
            EXPECT_EQ(vdGot[p], 0);
            EXPECT_NEAR(vdGot[2 + p], vdExpected[p], 1e-6 * vdExpected[p]) << iX << " x " << iRows;
            EXPECT_EQ(vdGot[2 + p], vdGot[4 + p]);
        }
    }
}
