// Forward and back projection against the formulas.

#include "tests/device/Rig.h"

namespace
{
const std::vector<float> g_vfAngles = {0, 90, -90, 120, -60, 60, 37.3f, -1e-4f, 89.9999f, 179, -45};
const int g_iProjs = int(g_vfAngles.size());

TestJob MakeJob(int iVolX, int iVolZ, int iProjX, bool bFilter)
{
    TestJob aJob;
    aJob.vfAngles = g_vfAngles;
    aJob.vuiList = {9, 10, 8, 7, 10, 6, 5, 4, 3, 2, 1, 0};  // one of them twice
    aJob.iVolX = iVolX;
    aJob.iVolZ = iVolZ;
    aJob.iProjX = iProjX;
    aJob.bFilter = bFilter;
    return aJob;
}

Values ToValues(std::span<const float> fValues)
{
    return {fValues.begin(), fValues.end()};
}

/// Ray sums of all projections of a set; the others are -7.
Images Project(const TestJob& rJob, const Images& rVol, int iFirst, int iEnd)
{
    const COracle aOracle(rJob);
    CRig aRig;
    const ForwardParams aP = {aRig.Buffer(Images(rJob.iProjX, g_iProjs, rVol.iN, -7)),
                              aRig.Array(rVol, 1),
                              aRig.Pairs(g_iProjs, aOracle.GetCos(), aOracle.GetSin()),
                              aRig.List(rJob.vuiList),
                              rJob.iVolX,
                              rJob.iVolZ,
                              rJob.iProjX,
                              iFirst,
                              iEnd};
    EXPECT_TRUE(GetBackend()->ForwardProject(aP));
    return CRig::Read(aP.aSums, rVol.iN);
}

/// What a back projection of some rows of a band begins with.
struct Band
{
    Images aVol, aProjs;
    std::vector<float> vfFirst, vfEnd;  // valid columns, [proj][row]
};

/// Random rows with ranges as a hostile client sends them among others. What lies outside of them
/// is missing, or no number where nothing looks: the texture unit also looks at what has no weight.
Band MakeBand(const TestJob& rJob, int iRows)
{
    Band aBand = {RandomImages(rJob.iVolX, rJob.iVolZ, iRows, 0, 1),
                  RandomImages(rJob.iProjX, g_iProjs, iRows, -1, 1.5f, 2),
                  {},
                  {}};
    const float fX = float(rJob.iProjX);
    for (int i = 0; i < g_iProjs * iRows; ++i)
    {
        const float fInset = float(i * 7 % 11);
        const auto [fFirst, fEnd] = i % 9 == 3   ? std::pair{fX + 1, 0.0f}
                                    : i % 9 == 5 ? std::pair{4e9f, 4.29e9f}
                                    : i % 9 == 7 ? std::pair{0.0f, 4.29e9f}
                                                 : std::pair{fInset, fX - fInset};
        aBand.vfFirst.push_back(fFirst);
        aBand.vfEnd.push_back(fEnd);
        for (int x = 0; x < rJob.iProjX; ++x)
            if (float(x) < fFirst || float(x) >= fEnd)
                aBand.aProjs.At(x, i / iRows, i % iRows) =
                    rJob.bFilter || float(x) == fEnd ? -1e30f : NAN;
    }
    return aBand;
}

/// Updates iCount rows from iFirstRow on with the projections of a set.
Images BackProject(const TestJob& rJob, const Band& rBand, int iFirstRow, int iCount, int iFirst,
                   int iEnd)
{
    const COracle aOracle(rJob);
    CRig aRig;
    const BackParams aP = {aRig.Array(Part(rBand.aVol, iFirstRow, iCount), 1),
                           aRig.Array(Part(rBand.aProjs, iFirstRow, iCount)),
                           aRig.Pairs(g_iProjs, aOracle.GetCos(), aOracle.GetSin()),
                           aRig.List(rJob.vuiList),
                           aRig.Pairs(rBand.aVol.iN, rBand.vfFirst, rBand.vfEnd),
                           rJob.eMethod == EMethod::eEm ? EUpdate::eEm : EUpdate::eSart,
                           0.7f,
                           rJob.iVolX,
                           rJob.iVolZ,
                           rJob.iProjX,
                           iFirst,
                           iEnd,
                           iFirstRow,
                           iCount};
    EXPECT_TRUE(GetBackend()->BackProject(aP));
    const Images aFramed = CRig::Read(aP.aVol, iCount);
    Images aResult(rJob.iVolX, rJob.iVolZ, iCount);
    int iFrame = 0;
    for (int r = 0; r < iCount; ++r)
        for (int z = 0; z < aFramed.iY; ++z)
            for (int x = 0; x < aFramed.iX; ++x)
                if (x > 0 && z > 0 && x <= rJob.iVolX && z <= rJob.iVolZ)
                    aResult.At(x - 1, z - 1, r) = aFramed.At(x, z, r);
                else
                    iFrame += aFramed.At(x, z, r) != 0;
    EXPECT_EQ(iFrame, 0) << "the frame stays 0";
    return aResult;
}
}  // namespace

TEST_P(Kernel, ForwardFollowsTheRaySum)
{
    for (const auto& [iVolX, iVolZ, iProjX, iRows] : {std::array{1, 1, 1, 1},
                                                      {37, 17, 37, 3},
                                                      {64, 15, 80, 16},
                                                      {40, 33, 41, 27},
                                                      {16, 130, 33, 5},
                                                      {257, 70, 257, 1},
                                                      {300, 64, 129, 8},
                                                      {2, 300, 17, 9}})
    {
        SCOPED_TRACE(testing::Message() << iVolX << " x " << iVolZ << ", " << iProjX << " columns");
        const TestJob aJob = MakeJob(iVolX, iVolZ, iProjX, mFilters());
        const COracle aOracle(aJob);
        const Images aVol = RandomImages(iVolX, iVolZ, iRows, -0.2f, 1);
        const Images aSums = Project(aJob, aVol, 1, 11);
        for (int n = 0; n < g_iProjs; ++n)
        {
            Values vdGot, vdExpected;
            for (int r = 0; r < iRows; ++r)
            {
                const auto fRow = aSums.Nth(r).subspan(std::size_t(n) * iProjX, iProjX);
                vdGot.insert(vdGot.end(), fRow.begin(), fRow.end());
                const Values vdRow = n == 0 || n == 9 ? Values(iProjX, -7)
                                                      : aOracle.Project(ToValues(aVol.Nth(r)), n);
                vdExpected.insert(vdExpected.end(), vdRow.begin(), vdRow.end());
            }
            EXPECT_LE(RelativeError(vdGot, vdExpected), Tolerance(GetParam(), 2e-5))
                << g_vfAngles[n] << " degrees";
        }
    }
}

// A voxel that is no number spoils the rays that pass it, and nothing else.
TEST_P(Kernel, ForwardSpreadsABadVoxelAlongItsRaysOnly)
{
    const TestJob aJob = MakeJob(170, 70, 190, false);
    const COracle aOracle(aJob);
    Images aVol = RandomImages(170, 70, 2, 0, 1);
    Values vdBad(aVol.GetPixels()), vdNear = vdBad;
    for (const auto& [iX, iZ] : {std::pair{1, 1}, {160, 1}, {168, 68}, {40, 63}})
    {
        aVol.At(iX, iZ, 1) = NAN;
        vdBad[iZ * 170 + iX] = 1;
        for (int k = 0; k < 9; ++k) vdNear[(iZ + k / 3 - 1) * 170 + iX + k % 3 - 1] = 1;
    }
    const Images aSums = Project(aJob, aVol, 0, int(aJob.vuiList.size()));
    for (int n = 0; n < g_iProjs; ++n)
    {
        const Values vdHits = aOracle.Project(vdBad, n), vdPasses = aOracle.Project(vdNear, n);
        for (int x = 0; x < 190; ++x)
        {
            const bool bNan = std::isnan(aSums.At(x, n, 1));
            EXPECT_TRUE(vdHits[x] > 1e-2 ? bNan : !bNan || vdPasses[x] > 0)
                << g_vfAngles[n] << " degrees, column " << x;
            EXPECT_FALSE(std::isnan(aSums.At(x, n, 0)));
        }
    }
}

TEST_P(Kernel, BackFollowsTheUpdate)
{
    for (const EMethod eMethod : {EMethod::eSart, EMethod::eEm})
        for (const auto& [iVolX, iVolZ, iProjX, iRows] : {std::array{1, 1, 2, 1},
                                                          {37, 17, 37, 3},
                                                          {64, 33, 80, 16},
                                                          {65, 31, 40, 15},
                                                          {257, 5, 300, 1},
                                                          {15, 70, 16, 8},
                                                          {43, 38, 51, 21},
                                                          {16, 40, 2, 5},
                                                          {45, 45, 1, 4}})
        {
            SCOPED_TRACE(testing::Message() << iVolX << " x " << iVolZ << ", " << iProjX
                                            << " columns, method " << int(eMethod));
            TestJob aJob = MakeJob(iVolX, iVolZ, iProjX, mFilters());
            aJob.eMethod = eMethod;
            const COracle aOracle(aJob);
            const Band aBand = MakeBand(aJob, iRows);
            const Images aNew = BackProject(aJob, aBand, 0, iRows, 1, 11);
            Values vdExpected;
            for (int r = 0; r < iRows; ++r)
            {
                Values vdSlice = ToValues(aBand.aVol.Nth(r));
                OracleRanges aRanges;
                for (int i = r; i < g_iProjs * iRows; i += iRows)
                    aRanges.emplace_back(aBand.vfFirst[i], aBand.vfEnd[i]);
                aOracle.Update(ToValues(aBand.aProjs.Nth(r)), aRanges, {1, 11}, 0.7f,
                               eMethod == EMethod::eEm, vdSlice);
                vdExpected.insert(vdExpected.end(), vdSlice.begin(), vdSlice.end());
            }
            EXPECT_LE(RelativeError(aNew.vf, vdExpected), Tolerance(GetParam(), 2e-5));
        }
}

TEST_P(Kernel, BackSurvivesBadValues)
{
    for (const EMethod eMethod : {EMethod::eSart, EMethod::eEm})
    {
        TestJob aJob = MakeJob(20, 9, 20, false);
        aJob.eMethod = eMethod;
        Band aBand = MakeBand(aJob, 5);
        const Images aGood = BackProject(aJob, aBand, 0, 5, 0, 12);
        for (int n = 0; n < g_iProjs; ++n) aBand.aProjs.At(11, n, 2) = n % 2 ? NAN : INFINITY;
        aBand.aVol.At(4, 4, 2) = NAN;
        const Images aNew = BackProject(aJob, aBand, 0, 5, 0, 12);
        EXPECT_EQ(aNew.At(4, 4, 2), 0) << "NaN becomes 0";
        for (const int r : {0, 1, 3, 4})
            EXPECT_TRUE(SameBits(Part(aNew, r, 1).vf, Part(aGood, r, 1).vf)) << "row " << r;

        // An empty set: SART keeps the slice, EM clears it.
        aBand.aVol = aGood;
        EXPECT_EQ(BackProject(aJob, aBand, 0, 5, 3, 3).vf,
                  eMethod == EMethod::eEm ? Images(20, 9, 5).vf : aGood.vf);
        aBand.vfFirst.assign(aBand.vfFirst.size(), NAN);
        aBand.vfEnd.assign(aBand.vfEnd.size(), -INFINITY);
        for (const float fValue : BackProject(aJob, aBand, 0, 5, 0, 12).vf)
            EXPECT_FALSE(fValue < 0);
    }
}

TEST_P(Kernel, ARowKnowsNoNeighbours)
{
    TestJob aJob = MakeJob(150, 90, 140, false);
    const Band aBand = MakeBand(aJob, 29);
    const auto SameRows = [&](auto aRun)
    {
        const Images aAll = aRun(0, 29);
        for (const auto& [iFirst, iCount] : {std::pair{0, 1}, {12, 1}, {4, 4}, {3, 7}, {13, 16}})
            EXPECT_TRUE(SameBits(Part(aAll, iFirst, iCount).vf, aRun(iFirst, iCount).vf))
                << iCount << " rows from " << iFirst << ", method " << int(aJob.eMethod);
    };
    SameRows([&](int iFirst, int iCount)
             { return Project(aJob, Part(aBand.aVol, iFirst, iCount), 0, 12); });
    for (const EMethod eMethod : {EMethod::eSart, EMethod::eEm})
    {
        aJob.eMethod = eMethod;
        SameRows([&](int iFirst, int iCount)
                 { return BackProject(aJob, aBand, iFirst, iCount, 0, 12); });
    }
}

// For the Kernel tests of all files of this program.
INSTANTIATE_TEST_SUITE_P(Backends, Kernel, testing::ValuesIn(GetTestBackends()),
                         [](const auto& rInfo) { return NameOf(rInfo.param); });
