#include <gtest/gtest.h>

#include "gpulib/Device/Backend.h"
#include "tests/job/JobRunner.h"

// A row's result depends neither on the number of workers nor on its place in a batch.

namespace
{
class SameBits : public testing::TestWithParam<std::string>
{
};
INSTANTIATE_TEST_SUITE_P(Sets, SameBits, testing::ValuesIn(GetHostInstructionSets()),
                         [](const auto& rInfo) { return rInfo.param; });

std::vector<float> ToFloat(const std::vector<double>& rValues)
{
    return {rValues.begin(), rValues.end()};
}

TestJob MakeJob(EMethod eMethod, bool bReproject)
{
    TestJob aJob;
    aJob.eMethod = eMethod;
    aJob.bReproject = bReproject;
    aJob.iY = 23;
    aJob.iIterations = 4;
    aJob.uiSets = 2;
    aJob.vuiSetSize = {4, 3};
    aJob.uiInterval = 2;
    aJob.bInvalid = !bReproject;
    aJob.aBox = OracleBox{{1, 0}, {15, 5}};
    return aJob;
}
}  // namespace

TEST_P(SameBits, AnyWorkersAndBatches)
{
    for (const TestJob& rJob :
         {MakeJob(EMethod::eSart, false), MakeJob(EMethod::eEm, false),
          MakeJob(EMethod::eBackProj, false), MakeJob(EMethod::eBackProj, true)})
    {
        const TestData aStart = MakeData(rJob, 3);
        const TestData aExpected = RunJob(rJob, aStart, GetParam());
        ASSERT_EQ(aExpected.strError, "");
        ASSERT_NE(rJob.bReproject ? aExpected.vfProjs : aExpected.vfVolume,
                  rJob.bReproject ? aStart.vfProjs : aStart.vfVolume);
        for (const int iWorkers : {1, 2, 3, 7, 30})  // 30: most have no row
            for (const int iRows : {1, 5, 16})
            {
                SCOPED_TRACE(testing::Message()
                             << int(rJob.eMethod) << (rJob.bReproject ? "r" : "") << ", "
                             << iWorkers << " workers, " << iRows << " rows");
                const TestData aResult = RunJob(rJob, aStart, GetParam(), iWorkers, iRows);
                ASSERT_EQ(aResult.strError, "");
                EXPECT_EQ(aResult.vfVolume, aExpected.vfVolume);
                EXPECT_EQ(aResult.vfProjs, aExpected.vfProjs);
                EXPECT_EQ(ToFloat(aResult.vdRfactor), ToFloat(aExpected.vdRfactor));
            }
    }
}

// Bands of many rows may be cut into larger batches than short ones.
TEST_P(SameBits, LongBands)
{
    TestJob aJob = MakeJob(EMethod::eSart, false);
    aJob.iY = 400;
    aJob.iProjX = aJob.iVolX = 11;
    const TestData aStart = MakeData(aJob, 6);
    const TestData aExpected = RunJob(aJob, aStart, GetParam(), 1, 1);
    for (const int iWorkers : {1, 2, 7})
        EXPECT_EQ(RunJob(aJob, aStart, GetParam(), iWorkers).vfVolume, aExpected.vfVolume);
}

// Sums that are kept over an iteration give what summing again would give: with an interval of 1
// the slices, and with them the sums, are loaded afresh for each iteration.
TEST_P(SameBits, KeptRaySums)
{
    for (const EMethod eMethod : {EMethod::eSart, EMethod::eEm})
    {
        TestJob aJob = MakeJob(eMethod, false);
        aJob.uiInterval = 0;
        aJob.bZeroStart = true;
        const TestData aStart = MakeData(aJob, 4);
        const TestData aKept = RunJob(aJob, aStart, GetParam(), 2);
        aJob.uiInterval = 1;
        const TestData aAfresh = RunJob(aJob, aStart, GetParam(), 2);
        EXPECT_EQ(aKept.vfVolume, aAfresh.vfVolume);
        EXPECT_EQ(ToFloat(aKept.vdRfactor), ToFloat(aAfresh.vdRfactor));
    }
}

// Iterations past the last whole interval are not run; fewer iterations than an interval all are.
TEST_P(SameBits, IterationsOfWholeIntervals)
{
    for (const auto& [iIterations, uiInterval, iRun] :
         {std::tuple{10, 3U, 9}, {2, 5U, 2}, {6, 3U, 6}, {3, 0U, 3}})
    {
        SCOPED_TRACE(testing::Message() << iIterations << " in intervals of " << uiInterval);
        TestJob aJob;
        aJob.iIterations = iIterations;
        aJob.uiInterval = uiInterval;
        const TestData aStart = MakeData(aJob, 5);
        const TestData aResult = RunJob(aJob, aStart, GetParam(), 2);
        aJob.iIterations = iRun;
        aJob.uiInterval = 0;
        const TestData aExpected = RunJob(aJob, aStart, GetParam());
        EXPECT_EQ(aResult.vfVolume, aExpected.vfVolume);

        // The others are there, with residuals of 0.
        const std::size_t tProjs = aJob.vfAngles.size();
        ASSERT_EQ(aResult.vdRfactor.size(), 2 * tProjs * iIterations);
        for (int i = 0; i < iIterations; ++i)
            EXPECT_EQ(aResult.vdRfactor[2 * tProjs * i + 1] > 0, i < iRun) << "iteration " << i;
    }
}
