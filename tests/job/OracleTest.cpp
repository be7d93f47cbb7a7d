#include <gtest/gtest.h>

#include "gpulib/Device/Backend.h"
#include "tests/job/JobRunner.h"

// Whole jobs against the double-precision reference, on every instruction set of this machine.

namespace
{
const std::vector<float> g_vfBeyond = {-120, -90, -89.5f, -45, 0, 30, 90, 100, 180};
const OracleBox g_aSmallBox = {{3, -1}, {10, 4}};
const OracleBox g_aSlab = {{0, 0}, {1000, 6}};

std::vector<TestJob> GetSingleOperations()
{
    std::vector<TestJob> vJobs;
    for (const bool bReproject : {true, false})
    {
        TestJob aJob;
        aJob.bReproject = bReproject;
        aJob.eMethod = EMethod::eBackProj;
        const auto Add = [&](const char* pcName, auto aChange)
        {
            vJobs.push_back(aJob);
            vJobs.back().strName = std::string(bReproject ? "Reproject" : "BackProject") + pcName;
            aChange(vJobs.back());
        };
        Add("Plain", [](TestJob&) {});
        Add("LongBand", [](TestJob& r) { r.iY = 330, r.iProjX = r.iVolX = 9, r.iVolZ = 5; });
        Add("WiderVolume", [](TestJob& r) { r.iVolX = 61; });
        Add("NarrowerVolume", [](TestJob& r) { r.iVolX = 20; });
        Add("OneColumn", [](TestJob& r) { r.iProjX = r.iVolX = r.iVolZ = 1; });
        Add("Large", [](TestJob& r) { r.iProjX = 257, r.iVolX = 300, r.iVolZ = 31, r.iY = 2; });
        Add("AnglesBeyond90", [](TestJob& r) { r.vfAngles = g_vfBeyond; });
        Add("ListOutOfOrder", [](TestJob& r) { r.vuiList = {5, 1, 2}; });
        Add("ListWithRepeats", [](TestJob& r) { r.vuiList = {5, 1, 5, 2}, r.aBox = g_aSmallBox; });
        Add("Box", [](TestJob& r) { r.aBox = g_aSmallBox; });
        Add("Slab", [](TestJob& r) { r.aBox = g_aSlab; });
        if (!bReproject) Add("Invalid", [](TestJob& r) { r.bInvalid = true, r.iY = 18; });
    }
    return vJobs;
}

std::vector<TestJob> GetIterations()
{
    std::vector<TestJob> vJobs;
    for (const EMethod eMethod : {EMethod::eSart, EMethod::eEm})
    {
        TestJob aJob;
        aJob.eMethod = eMethod;
        aJob.iIterations = 10;
        aJob.aBox = OracleBox{{0, 0}, {18.5f, 6.5f}};
        const auto Add = [&](const char* pcName, auto aChange)
        {
            vJobs.push_back(aJob);
            vJobs.back().strName = std::string(eMethod == EMethod::eSart ? "Sart" : "Em") + pcName;
            aChange(vJobs.back());
        };
        Add("OneSet", [](TestJob&) {});
        Add("FromZero", [](TestJob& r) { r.bZeroStart = true, r.uiSets = 2; });
        Add("LongBand", [](TestJob& r) { r.iY = 330, r.iProjX = r.iVolX = 9, r.iVolZ = 5; });
        Add("OneIteration", [](TestJob& r) { r.iIterations = 1; });
        Add("ThreeSets", [](TestJob& r) { r.uiSets = 3; });
        Add("SetsTooShort", [](TestJob& r) { r.uiSets = 2, r.vuiSetSize = {2, 3}; });
        Add("SetsCut", [](TestJob& r) { r.uiSets = 2, r.vuiSetSize = {4, 60}; });
        Add("Relaxation",
            [](TestJob& r)
            {
                r.uiSets = 2;
                for (int k = 0; k < 20; ++k) r.vfRelax.push_back(1.0f / float(k + 1));
            });
        Add("List", [](TestJob& r) { r.vuiList = {6, 0, 3, 3, 2}, r.uiSets = 2; });
        Add("SmallBox", [](TestJob& r) { r.aBox = g_aSmallBox; });
        Add("Slab", [](TestJob& r) { r.aBox = g_aSlab; });
        Add("NoBox", [](TestJob& r) { r.aBox.reset(); });
        Add("Invalid", [](TestJob& r) { r.bInvalid = true, r.iY = 18, r.uiSets = 2; });
        Add("AnglesBeyond90", [](TestJob& r) { r.vfAngles = g_vfBeyond; });
        Add("WiderVolume", [](TestJob& r) { r.iVolX = 61; });
        Add("NarrowerVolume", [](TestJob& r) { r.iVolX = 20; });
        Add("Large", [](TestJob& r) { r.iProjX = 257, r.iVolX = 257, r.iVolZ = 37, r.iY = 1; });
    }
    // An empty set means nothing to SART; in EM it makes the volume 0.
    for (const EMethod eMethod : {EMethod::eSart, EMethod::eEm})
    {
        TestJob aJob = vJobs[0];
        aJob.strName = eMethod == EMethod::eSart ? "SartEmptySets" : "EmEmptySets";
        aJob.eMethod = eMethod;
        aJob.uiSets = 9;
        vJobs.push_back(aJob);
    }
    return vJobs;
}

void ExpectOracle(const TestJob& rJob, double dTolerance)
{
    const TestData aStart = MakeData(rJob, 7);
    const TestData aExpected = RunOracle(rJob, aStart);
    for (const std::string& rSet : GetHostInstructionSets())
    {
        SCOPED_TRACE(rSet);
        const TestData aResult = RunJob(rJob, aStart, rSet);
        ASSERT_EQ(aResult.strError, "");
        EXPECT_LE(RelativeError(aResult.vfVolume, aExpected.vfVolume), dTolerance);
        EXPECT_LE(RelativeError(aResult.vfProjs, aExpected.vfProjs), dTolerance);
        EXPECT_LE(RelativeError(aResult.vdRfactor, aExpected.vdRfactor), dTolerance);
    }
}

class SingleOperation : public testing::TestWithParam<TestJob>
{
};
class Iterations : public testing::TestWithParam<TestJob>
{
};
std::string NameOf(const testing::TestParamInfo<TestJob>& rInfo)
{
    return rInfo.param.strName;
}
INSTANTIATE_TEST_SUITE_P(Jobs, SingleOperation, testing::ValuesIn(GetSingleOperations()), NameOf);
INSTANTIATE_TEST_SUITE_P(Jobs, Iterations, testing::ValuesIn(GetIterations()), NameOf);
}  // namespace

// One operation: the rounding of float sums of up to a few hundred values.
TEST_P(SingleOperation, FollowsTheFormula)
{
    ExpectOracle(GetParam(), 2e-5);
}

// Ten iterations: rounding that the iterations carry on.
TEST_P(Iterations, FollowTheFormula)
{
    ExpectOracle(GetParam(), 5e-4);
}
