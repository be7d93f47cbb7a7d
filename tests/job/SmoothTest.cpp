#include <gtest/gtest.h>

#include "gpulib/Device/Backend.h"
#include "tests/job/JobRunner.h"

// Jobs that smooth the volume between blocks of iterations.

namespace
{
class SmoothedJob : public testing::TestWithParam<std::string>
{
};
INSTANTIATE_TEST_SUITE_P(Sets, SmoothedJob, testing::ValuesIn(GetHostInstructionSets()),
                         [](const auto& rInfo) { return rInfo.param; });

/// Values that are no product of three factors and add up to 1.
void SetKernel(TestJob& rJob, int iX, int iY, int iZ)
{
    rJob.aiKernel = {iX, iY, iZ};
    rJob.vfKernel.clear();
    const int iVoxels = iX * iY * iZ;
    for (int k = 0; k < iVoxels; ++k)
        rJob.vfKernel.push_back(2.0f * float((7 * k) % iVoxels + 1) /
                                float(iVoxels * (iVoxels + 1)));
}

TestJob MakeJob(EMethod eMethod)
{
    TestJob aJob;
    aJob.eMethod = eMethod;
    aJob.iY = 9;
    aJob.iIterations = 5;
    aJob.uiInterval = 2;
    aJob.uiSets = 2;
    aJob.aBox = OracleBox{{0, 0}, {18.5f, 6.5f}};
    SetKernel(aJob, 5, 2, 3);
    return aJob;
}
}  // namespace

TEST_P(SmoothedJob, FollowsTheFormula)
{
    for (const EMethod eMethod : {EMethod::eSart, EMethod::eEm})
        for (const unsigned uiInterval : {1U, 2U, 5U, 9U})
        {
            SCOPED_TRACE(testing::Message() << int(eMethod) << " interval " << uiInterval);
            TestJob aJob = MakeJob(eMethod);
            aJob.uiInterval = uiInterval;
            const TestData aStart = MakeData(aJob, 21);
            const TestData aExpected = RunOracle(aJob, aStart);
            const TestData aResult = RunJob(aJob, aStart, GetParam(), 3);
            ASSERT_EQ(aResult.strError, "");
            EXPECT_LE(RelativeError(aResult.vfVolume, aExpected.vfVolume), 1e-4);
            EXPECT_LE(RelativeError(aResult.vdRfactor, aExpected.vdRfactor), 1e-4);
        }
}

TEST_P(SmoothedJob, AnyWorkersGiveTheSameBits)
{
    TestJob aJob = MakeJob(EMethod::eSart);
    for (const int iKernelX : {4, 31})  // narrower and wider than the pieces
    {
        SetKernel(aJob, iKernelX, 3, 2);
        const TestData aStart = MakeData(aJob, 22);
        const TestData aExpected = RunJob(aJob, aStart, GetParam());
        for (const int iWorkers : {2, 7, 40})  // 40: most have neither a row nor a column
        {
            SCOPED_TRACE(testing::Message() << iKernelX << " wide, " << iWorkers << " workers");
            const TestData aResult = RunJob(aJob, aStart, GetParam(), iWorkers);
            ASSERT_EQ(aResult.strError, "");
            EXPECT_EQ(aResult.vfVolume, aExpected.vfVolume);
        }
    }
}

// Without a kernel the workers only meet; without an interval the kernel is not used.
TEST_P(SmoothedJob, NothingToDo)
{
    TestJob aJob = MakeJob(EMethod::eSart);
    aJob.iIterations = 4;
    const TestData aStart = MakeData(aJob, 23);
    aJob.uiInterval = 0;
    const TestData aNoInterval = RunJob(aJob, aStart, GetParam(), 2);
    aJob.vfKernel.clear();
    const TestData aPlain = RunJob(aJob, aStart, GetParam(), 2);
    aJob.uiInterval = 2;
    const TestData aNoKernel = RunJob(aJob, aStart, GetParam(), 2);
    EXPECT_EQ(aNoInterval.vfVolume, aPlain.vfVolume);
    EXPECT_EQ(aNoKernel.vfVolume, aPlain.vfVolume);
}

// A worker that fails takes the others with it: none waits for ever.
TEST_P(SmoothedJob, FailureReleasesAll)
{
    TestJob aJob = MakeJob(EMethod::eSart);
    aJob.iFailingWorker = 1;
    const TestData aResult = RunJob(aJob, MakeData(aJob, 24), GetParam(), 3);
    EXPECT_NE(aResult.strError, "");
}
