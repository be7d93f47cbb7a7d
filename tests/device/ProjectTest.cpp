// Forward and back projection against the formulas.

#include "tests/device/Rig.h"

namespace
{
const std::vector<float> g_vfAngles = {0, 90, -90, 120, -60, 60, 37.3f, -1e-4f, 89.9999f, 179, -45};
constexpr int g_iProjs = 11, g_iBefore = 2;  // rows of a band before the batch
using Size = std::array<int, 4>;             // of the volume along x and z, columns, rows

TestJob MakeJob(const Size& rSize, bool bFilter, EMethod eMethod = EMethod::eSart)
{
    TestJob aJob;
    aJob.vfAngles = g_vfAngles;
    aJob.vuiList = {9, 10, 8, 7, 10, 6, 5, 4, 3, 2, 1, 0};  // one of them twice
    aJob.iVolX = rSize[0];
    aJob.iVolZ = rSize[1];
    aJob.iProjX = rSize[2];
    aJob.bFilter = bFilter;
    aJob.eMethod = eMethod;
    return aJob;
}

/// Ray sums of all projections of a set; the others are -7.
Images Project(const TestJob& rJob, const Images& rVol, int iFirst, int iEnd)
{
    const COracle aOracle(rJob);
    CRig aRig;
    const DeviceImage aSums = aRig.Buffer(Images(rJob.iProjX, g_iProjs, rVol.iN, -7));
    const DeviceImage aCosSin = aRig.Pairs(g_iProjs, aOracle.GetCos(), aOracle.GetSin());
    EXPECT_TRUE(
        GetBackend()->ForwardProject({aSums, aRig.Array(rVol, 1), aCosSin, aRig.List(rJob.vuiList),
                                      rJob.iVolX, rJob.iVolZ, rJob.iProjX, iFirst, iEnd}));
    return CRig::Read(aSums, rVol.iN);
}

/// Random rows with ranges as a hostile client sends them among others. What lies outside of them
/// is missing, or no number where nothing looks: the texture unit also looks at what has no weight.
struct Band
{
    Band(const TestJob& rJob, int iRows)
        : aVol(RandomImages(rJob.iVolX, rJob.iVolZ, iRows, 0, 1)),
          aProjs(RandomImages(rJob.iProjX, g_iProjs, iRows, -1, 1.5f, 2))
    {
        const float fX = float(rJob.iProjX);
        const int iWidth = iRows + g_iBefore;
        for (int i = 0; i < g_iProjs * iWidth; ++i)
        {
            const float fInset = float(i * 7 % 11);
            const bool bEndless = i % 9 == 5 || i % 9 == 7;
            vfFirst.push_back(i % 9 == 3 ? fX + 1 : i % 9 == 5 ? 4e9f : bEndless ? 0 : fInset);
            vfEnd.push_back(i % 9 == 3 ? 0 : bEndless ? 4.29e9f : fX - fInset);
            for (int x = 0; x < rJob.iProjX && i % iWidth >= g_iBefore; ++x)
                if (float(x) < vfFirst[i] || float(x) >= vfEnd[i])
                    aProjs.At(x, i / iWidth, i % iWidth - g_iBefore) =
                        rJob.bFilter || float(x) == vfEnd[i] ? -1e30f : NAN;
        }
    }
    OracleRanges GetRanges(int iRow) const
    {
        OracleRanges aRanges;
        for (std::size_t i = iRow + g_iBefore; i < vfEnd.size(); i += aVol.iN + g_iBefore)
            aRanges.emplace_back(vfFirst[i], vfEnd[i]);
        return aRanges;
    }
    Images aVol, aProjs;
    std::vector<float> vfFirst, vfEnd;  // valid columns, [proj][row of the band]
};

/// The volume updated with the projections of a set.
Images BackProject(const TestJob& rJob, const Band& rBand, int iFirst, int iEnd)
{
    const COracle aOracle(rJob);
    const int iRows = rBand.aVol.iN;
    CRig aRig;
    const DeviceImage aVol = aRig.Array(rBand.aVol, 1), aProjs = aRig.Array(rBand.aProjs);
    const DeviceImage aCosSin = aRig.Pairs(g_iProjs, aOracle.GetCos(), aOracle.GetSin());
    const DeviceImage aRange = aRig.Pairs(iRows + g_iBefore, rBand.vfFirst, rBand.vfEnd);
    const EUpdate eUpdate = rJob.eMethod == EMethod::eEm ? EUpdate::eEm : EUpdate::eSart;
    EXPECT_TRUE(GetBackend()->BackProject({aVol, aProjs, aCosSin, aRig.List(rJob.vuiList), aRange,
                                           eUpdate, 0.7f, rJob.iVolX, rJob.iVolZ, rJob.iProjX,
                                           iFirst, iEnd, g_iBefore, iRows}));
    Images aResult = rBand.aVol, aFramed = CRig::Read(aVol, iRows);
    for (int i = 0; i < int(aResult.vf.size()); ++i)
    {
        const int x = i % rJob.iVolX, z = i / rJob.iVolX;  // slices follow each other
        aResult.vf[i] = std::exchange(aFramed.At(x + 1, z + 1 + z / rJob.iVolZ * 2, 0), 0.0f);
    }
    EXPECT_EQ(aFramed.vf, std::vector<float>(aFramed.vf.size())) << "the frame stays 0";
    return aResult;
}

constexpr Size g_aSizes[] = {{1, 1, 1, 1},      {37, 17, 37, 3}, {64, 33, 80, 16},
                             {40, 33, 41, 27},  {16, 130, 2, 5}, {257, 5, 257, 1},
                             {300, 64, 129, 8}, {2, 300, 17, 9}, {65, 31, 40, 15}};
constexpr EMethod g_aeMethods[] = {EMethod::eSart, EMethod::eEm};
}  // namespace

TEST_P(Kernel, ForwardFollowsTheRaySum)
{
    for (const Size& rSize : g_aSizes)
    {
        const TestJob aJob = MakeJob(rSize, mFilters());
        const Images aVol = RandomImages(rSize[0], rSize[1], rSize[3], -0.2f, 1);
        Values vdExpected;
        for (int i = 0; i < rSize[3] * g_iProjs; ++i)
        {
            const int n = i % g_iProjs;  // positions 0 and 11 name projections 9 and 0
            const Values vdSums = n % 9 == 0
                                      ? Values(rSize[2], -7)
                                      : COracle(aJob).Project(aVol.GetValues(i / g_iProjs), n);
            vdExpected.insert(vdExpected.end(), vdSums.begin(), vdSums.end());
        }
        EXPECT_LE(RelativeError(Project(aJob, aVol, 1, 11).vf, vdExpected),
                  Tolerance(GetParam(), 5e-6))
            << testing::PrintToString(rSize);
    }
}

// A voxel that is no number spoils the rays that pass it, and nothing else.
TEST_P(Kernel, ForwardSpreadsABadVoxelAlongItsRaysOnly)
{
    const TestJob aJob = MakeJob({170, 70, 190}, false);
    Images aVol = RandomImages(170, 70, 2, 0, 1);
    for (const int i : {171, 330, 11728, 10750}) aVol.Nth(1)[i] = NAN;
    const Images aSums = Project(aJob, aVol, 0, 12);
    int iTouched = 0;
    for (int n = 0; n < g_iProjs; ++n)
    {
        const Values vdSums = COracle(aJob).Project(aVol.GetValues(1), n);
        for (int x = 0; x < 190; ++x)
        {
            EXPECT_FALSE(std::isnan(aSums.At(x, n, 0)));
            iTouched += std::isnan(aSums.At(x, n, 1)) != std::isnan(vdSums[x]);
        }
    }
    EXPECT_LE(iTouched, 20) << "rays that round to the other side of a voxel's edge";
}

TEST_P(Kernel, BackFollowsTheUpdate)
{
    for (const EMethod eMethod : g_aeMethods)
        for (const Size& rSize : g_aSizes)
        {
            const TestJob aJob = MakeJob(rSize, mFilters(), eMethod);
            const Band aBand(aJob, rSize[3]);
            Values vdExpected;
            for (int r = 0; r < rSize[3]; ++r)
            {
                Values vdSlice = aBand.aVol.GetValues(r);
                COracle(aJob).Update(aBand.aProjs.GetValues(r), aBand.GetRanges(r), {1, 11}, 0.7f,
                                     eMethod == EMethod::eEm, vdSlice);
                vdExpected.insert(vdExpected.end(), vdSlice.begin(), vdSlice.end());
            }
            EXPECT_LE(RelativeError(BackProject(aJob, aBand, 1, 11).vf, vdExpected),
                      Tolerance(GetParam(), 5e-6))
                << testing::PrintToString(rSize) << ", method " << int(eMethod);
        }
}

TEST_P(Kernel, BackSurvivesBadValues)
{
    for (const EMethod eMethod : g_aeMethods)
    {
        const TestJob aJob = MakeJob({20, 9, 20}, false, eMethod);
        Band aBand(aJob, 5);
        const Images aGood = BackProject(aJob, aBand, 0, 12);
        for (int n = 0; n < g_iProjs; ++n) aBand.aProjs.At(11, n, 2) = n % 2 ? NAN : INFINITY;
        aBand.aVol.At(4, 4, 2) = NAN;
        const Images aNew = BackProject(aJob, aBand, 0, 12);
        EXPECT_EQ(aNew.At(4, 4, 2), 0) << "NaN becomes 0";
        for (const int r : {0, 1, 3, 4})
            EXPECT_EQ(Part(aNew, r).vf, Part(aGood, r).vf) << "row " << r;

        // An empty set: SART keeps the slice, EM clears it.
        aBand.aVol = aGood;
        EXPECT_EQ(BackProject(aJob, aBand, 3, 3).vf,
                  eMethod == EMethod::eEm ? Images(20, 9, 5).vf : aGood.vf);
        aBand.vfFirst.assign(aBand.vfFirst.size(), NAN);
        aBand.vfEnd.assign(aBand.vfEnd.size(), -INFINITY);
        EXPECT_TRUE(std::ranges::none_of(BackProject(aJob, aBand, 0, 12).vf,
                                         [](float fValue) { return fValue < 0; }));
    }
}

// For the Kernel tests of all files of this program.
INSTANTIATE_TEST_SUITE_P(Backends, Kernel, testing::ValuesIn(GetTestBackends()),
                         [](const auto& rInfo) { return NameOf(rInfo.param); });
