// Kernels that stream over projection rows: weights, comparisons and sums.

#include "tests/device/Rig.h"

TEST_P(Kernel, WeightsAddressRowsByPositionOrByNumber)
{
    for (const auto& [iX, iRows] : {std::pair{1, 1}, {17, 3}, {16, 16}, {37, 9}, {19, 30}})
    {
        const Images aIn = RandomImages(iX, 5, iRows, -2, 2), aW = RandomImages(iX, 5, 1, 1, 3, 2);
        CRig aRig;
        WeightParams aP = {{}, aRig.Array(aIn), aRig.Array(aW), aRig.List({4, 1, 3}), {}, iX, 1, 3};
        for (const EWeight eWeight :
             {EWeight::eCopy, EWeight::eRef, EWeight::eRecon, EWeight::eReproj})
        {
            SCOPED_TRACE(testing::Message() << iX << " x " << iRows << ", kind " << int(eWeight));
            aP.eOperation = eWeight;
            aP.aOut = aRig.Buffer(Images(iX, 5, iRows, 77));
            ASSERT_TRUE(GetBackend()->Weight(aP));
            const Images aOut = CRig::Read(aP.aOut, iRows);
            const bool bByNumber = eWeight == EWeight::eRecon || eWeight == EWeight::eReproj;
            for (int r = 0; r < iRows; ++r)
                for (int n = 0; n < 5; ++n)
                    for (int x = 0; x < iX; ++x)
                    {
                        const float fIn = aIn.At(x, n, r), fWeight = aW.At(x, n, 0);
                        const bool bSelected = n == 1 || n == (bByNumber ? 3 : 2);
                        ASSERT_EQ(aOut.At(x, n, r), !bSelected                    ? 77
                                                    : eWeight == EWeight::eCopy   ? fIn
                                                    : eWeight == EWeight::eReproj ? fIn / fWeight
                                                                                  : fIn * fWeight)
                            << "projection " << n << " row " << r << " column " << x;
                    }
        }
    }
}

TEST_P(Kernel, CombineFollowsItsRules)
{
    struct Rule
    {
        float fMeasured, fSum, fDiff, fRatio;
    };
    const std::vector<Rule> vRules = {{6, 4, 2, 1.5f},
                                      {-1, 2, -3, 1},
                                      {5, 0, 5, 1},
                                      {0, 2, -2, 0},
                                      {1, NAN, NAN, NAN},
                                      {NAN, 2, NAN, 1},
                                      {-0.0f, 4, -4, 0},
                                      {3, -2, 5, -1.5f},
                                      {-1e30f, 1, -1e30f, 1},
                                      {0, 0, 0, 1},
                                      {8, INFINITY, -INFINITY, 0}};
    const int iX = int(vRules.size());
    for (const int iRows : {1, 2, 7, 16, 31})
    {
        Images aRaw(iX, 3, iRows, 5), aSums(iX, 3, iRows, 3);
        for (int i = 0; i < iX * iRows; ++i)
        {
            aRaw.At(i % iX, 2, i / iX) = vRules[i % iX].fMeasured;
            aSums.At(i % iX, 2, i / iX) = vRules[i % iX].fSum;
        }
        CRig aRig;
        CombineParams aP = {aRig.Array(Images(iX, 3, iRows, 77)),
                            aRig.Array(aRaw),
                            aRig.Buffer(aSums),
                            aRig.List({1, 2, 0}),
                            {},
                            iX,
                            1,
                            2};
        for (const ECombine eOperation : {ECombine::eDiff, ECombine::eDiv})
        {
            aP.eOperation = eOperation;
            ASSERT_TRUE(GetBackend()->Combine(aP));
            const Images aOut = CRig::Read(aP.aOut, iRows);
            for (int i = 0; i < 3 * iX * iRows; ++i)
            {
                const Rule& rRule = vRules[i % iX];
                const float fGot = aOut.vf[i],
                            fRule = eOperation == ECombine::eDiff ? rRule.fDiff : rRule.fRatio;
                const float fExpected = i / iX % 3 == 2 ? fRule : 77;
                EXPECT_TRUE(fGot == fExpected || (std::isnan(fGot) && std::isnan(fExpected)))
                    << fGot << " for " << rRule.fMeasured << " and " << rRule.fSum;
            }
        }
    }
}

TEST_P(Kernel, SumsRepeatTheLastColumnAndSkipMissing)
{
    for (const auto& [iX, iRows] : {std::pair{1, 1}, {300, 3}, {256, 16}, {257, 5}, {31, 29}})
    {
        SCOPED_TRACE(testing::Message() << iX << " columns, " << iRows << " rows");
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
        Values vdExpected(2);
        for (int r = 0; r < iRows; ++r)
        {
            aP.aSource = aRig.Array(Part(aRows, r, 1));
            ASSERT_TRUE(GetBackend()->SumAbs(aP));
            const auto fRow = aRows.Nth(r);
            const Values vdSums = COracle(aJob).SumAbs({fRow.begin(), fRow.end()});
            for (int p = 0; p < 2; ++p) vdExpected[p] += vdSums[p];
        }
        Values vdGot(6);
        ASSERT_TRUE(GetBackend()->DownloadTable(aP.aAccum, vdGot.data()));
        for (int p = 0; p < 2; ++p)
        {
            EXPECT_EQ(vdGot[p], 0);
            EXPECT_NEAR(vdGot[2 + p], vdExpected[p], 1e-6 * vdExpected[p]);
            EXPECT_EQ(vdGot[2 + p], vdGot[4 + p]);
        }
    }
}
