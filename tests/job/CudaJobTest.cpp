// Whole jobs on the CUDA backend against the host backend.

#include <gtest/gtest.h>

#include "tests/backends/Backends.h"
#include "tests/job/JobRunner.h"

namespace
{
class CudaJob : public testing::TestWithParam<std::string>
{
protected:
    void SetUp() override
    {
        const auto pBackend = MakeTestBackend(GetParam(), 2);
        if (!pBackend) GTEST_SKIP() << "no device for " << GetParam();
        m_iDevices = pBackend->GetDeviceCount();
    }
    void TearDown() override { SetBackend(nullptr); }

    int m_iDevices = 0;
};
INSTANTIATE_TEST_SUITE_P(Backends, CudaJob, testing::ValuesIn(GetTestBackends()),
                         [](const auto& rInfo) { return NameOf(rInfo.param); });

/// A job with all that the kernels of its kind do.
TestJob MakeJob(const std::string& strName)
{
    TestJob aJob;
    aJob.strName = strName;
    aJob.bReproject = strName == "reprojection";
    aJob.eMethod = strName == "SART" ? EMethod::eSart
                   : strName == "EM" ? EMethod::eEm
                                     : EMethod::eBackProj;
    const bool bIterates = strName == "SART" || strName == "EM";
    aJob.iIterations = bIterates ? 4 : 1;
    if (bIterates) aJob.uiSets = 2;
    if (bIterates) aJob.vfRelax = {1, 0.8f, 0.9f, 0.7f, 0.6f, 0.5f, 0.4f, 0.3f};
    aJob.vuiList = {5, 0, 3, 1, 6, 2};
    aJob.aBox = OracleBox{{1, 0}, {15, 5}};
    aJob.bInvalid = !aJob.bReproject;
    return aJob;
}

const std::vector<std::string> g_vstrJobs = {"SART", "EM", "back projection", "reprojection"};
}  // namespace

TEST_P(CudaJob, AgreesWithTheHost)
{
    const double dTolerance = GetParam() == "cuda" ? 2e-3 : 1e-5;
    for (const std::string& strName : g_vstrJobs)
    {
        SCOPED_TRACE(strName);
        const TestJob aJob = MakeJob(strName);
        const TestData aStart = MakeData(aJob, 5);
        const TestData aExpected = RunJob(aJob, aStart, "host");
        const TestData aResult = RunJob(aJob, aStart, GetParam());
        ASSERT_EQ(aResult.strError, "");
        EXPECT_LE(RelativeError(aResult.vfVolume, aExpected.vfVolume), dTolerance);
        EXPECT_LE(RelativeError(aResult.vfProjs, aExpected.vfProjs), dTolerance);
        EXPECT_LE(RelativeError(aResult.vdRfactor, aExpected.vdRfactor), dTolerance);
        EXPECT_NE(aJob.bReproject ? aResult.vfProjs : aResult.vfVolume,
                  aJob.bReproject ? aStart.vfProjs : aStart.vfVolume);
    }
}

// Batches of one row travel one after another while the kernels run; in a single batch nothing
// does.
TEST_P(CudaJob, HasTheSameBitsInAnyBatchAndOnAnyDevice)
{
    for (const std::string& strName : g_vstrJobs)
    {
        const TestJob aJob = MakeJob(strName);
        const TestData aStart = MakeData(aJob, 6);
        const TestData aExpected = RunJob(aJob, aStart, GetParam());
        for (int iWorkers = 1; iWorkers <= std::min(m_iDevices, 2); ++iWorkers)
            for (const int iRows : {1, 2})
            {
                SCOPED_TRACE(testing::Message()
                             << strName << ", " << iWorkers << " workers, " << iRows << " rows");
                const TestData aResult = RunJob(aJob, aStart, GetParam(), iWorkers, iRows);
                ASSERT_EQ(aResult.strError, "");
                EXPECT_EQ(aResult.vfVolume, aExpected.vfVolume);
                EXPECT_EQ(aResult.vfProjs, aExpected.vfProjs);
            }
    }
}

TEST_P(CudaJob, SmoothsBetweenIterations)
{
    TestJob aJob = MakeJob("SART");
    aJob.uiInterval = 2;
    aJob.aiKernel = {3, 3, 3};
    aJob.vfKernel.assign(27, 1 / 27.0f);
    const TestData aStart = MakeData(aJob, 7);
    const TestData aExpected = RunJob(aJob, aStart, "host");
    const TestData aResult = RunJob(aJob, aStart, GetParam(), std::min(m_iDevices, 2), 2);
    ASSERT_EQ(aResult.strError, "");
    EXPECT_LE(RelativeError(aResult.vfVolume, aExpected.vfVolume),
              GetParam() == "cuda" ? 2e-3 : 1e-5);
}
