// Whole jobs of the library, on every backend of the program.

#include "tests/device/Rig.h"
#include "tests/job/JobRunner.h"

namespace
{
/// Values that are no product of three factors and add up to 1.
void SetKernel(TestJob& rJob, int iX, int iY, int iZ)
{
    const int iVoxels = iX * iY * iZ;
    rJob.aiKernel = {iX, iY, iZ};
    rJob.vfKernel.clear();
    for (int k = 0; k < iVoxels; ++k)
        rJob.vfKernel.push_back(2.0f * float((7 * k) % iVoxels + 1) /
                                float(iVoxels * (iVoxels + 1)));
}

bool Iterates(const TestJob& rJob)
{
    return rJob.eMethod != EMethod::eBackProj;
}

bool IsOnCuda()
{
    return GetTestBackends().back() == "cuda";
}

/// Whether the host adds products with one rounding, as a GPU does.
bool HostFuses()
{
    return GetHostInstructionSets().front() != "baseline";
}

void SetBox(TestJob& rJob, float fX, float fZ, float fHalfX, float fHalfZ)
{
    rJob.aBox = OracleBox{{fX, fZ}, {fHalfX, fHalfZ}};
}

void SetSizes(TestJob& rJob, int iVolX, int iVolZ, int iProjX)
{
    rJob.iVolX = iVolX;
    rJob.iVolZ = iVolZ;
    rJob.iProjX = iProjX;
    rJob.iY = 1;
}

struct Change
{
    const char* pcName;
    std::string_view strOnly;  ///< i: means something to iterations only, h: nothing new to a GPU
    void (*pApply)(TestJob& r);
};
const std::pair<const char*, EMethod> g_aKinds[] = {{"Reproject", EMethod::eBackProj},
                                                    {"BackProject", EMethod::eBackProj},
                                                    {"Sart", EMethod::eSart},
                                                    {"Em", EMethod::eEm}};

/// All that the kernels of a job do.
void DoAll(TestJob& r)
{
    r.iY = IsOnCuda() ? 5 : 23;
    r.iVolX = 34;
    r.vuiList = {5, 3, 6, 0, 1, 2};  // sets of flat views and of steep ones
    r.bInvalid = true;
    r.uiSets = 3;
    r.vfRelax = {1, 0.8f, 0.9f, 0.7f, 0.6f, 0.5f, 0.4f, 0.3f, 0.5f, 0.2f, 1, 0.7f};
    r.uiInterval = 2;
    SetBox(r, 5.2f, -2.3f, 9.7f, 3.1f);
    SetKernel(r, r.eMethod == EMethod::eEm ? 31 : 4, 3, 2);
}

const std::vector<float> g_vfBeyond = {-120, -90, -45, -1e-4f, 0, 37.3f, 89.9999f, 90, 180};
const std::vector<unsigned> g_vuiList = {6, 0, 3, 3, 2}, g_vuiCut = {4, 4294967290, 1};
const Change g_aChanges[] = {
    {"Plain", "", [](TestJob&) {}},
    {"LongBand", "h", [](TestJob& r) { r.iY = 330, r.iProjX = r.iVolX = 9, r.iVolZ = 5; }},
    {"WiderVolume", "", [](TestJob& r) { r.iVolX = 61; }},
    {"Tiles", "", [](TestJob& r) { SetSizes(r, 300, 65, 257); }},
    {"Deep", "", [](TestJob& r) { SetSizes(r, 2, 300, 17); }},
    {"NarrowDetector", "", [](TestJob& r) { SetSizes(r, 16, 130, 2); }},
    {"OneColumn", "", [](TestJob& r) { r.iProjX = r.iVolX = r.iVolZ = 1; }},
    {"BeyondRightAngles", "", [](TestJob& r) { r.vfAngles = g_vfBeyond; }},
    {"List", "", [](TestJob& r) { r.vuiList = g_vuiList, r.uiSets = 2; }},
    {"Twins", "ih",
     [](TestJob& r) {
         r.vuiList = {3, 3, 2, 3}, r.uiSets = 2;
     }},
    {"Slab", "h", [](TestJob& r) { SetBox(r, 0, 0, 371, 6), r.vfAngles[0] = 89.8f; }},
    {"WideBox", "h", [](TestJob& r) { SetBox(r, 0, 0, 369, 6), r.vfAngles[0] = 89.8f; }},
    {"NoBox", "", [](TestJob& r) { r.aBox.reset(); }},
    {"FromZero", "ih", [](TestJob& r) { r.bZeroStart = true, r.uiSets = 3; }},
    {"SetsCut", "ih", [](TestJob& r) { r.uiSets = 3, r.vuiSetSize = g_vuiCut; }},
    // An empty set means nothing to SART; in EM it makes the volume 0.
    {"EmptySets", "ih", [](TestJob& r) { r.uiSets = 9; }},
    // Iterations past the last whole interval are not run; fewer than an interval all are.
    {"Smoothed", "i", [](TestJob& r) { SetKernel(r, 40, 1, 2), r.uiInterval = 3; }},
    {"SmoothedOnce", "ih", [](TestJob& r) { SetKernel(r, 1, 4, 1), r.uiInterval = 99; }},
    {"IntervalWithoutKernel", "ih", [](TestJob& r) { r.bZeroStart = true, r.uiInterval = 2; }},
    {"All", "", DoAll},
};

std::vector<TestJob> GetJobs()
{
    std::vector<TestJob> vJobs;
    for (const auto& [pcKind, eMethod] : g_aKinds)
        for (const auto& [pcName, strOnly, pApply] : g_aChanges)
        {
            TestJob aJob;
            aJob.iY = 3;
            aJob.bReproject = *pcKind == 'R';
            aJob.eMethod = eMethod;
            aJob.strName = std::string(pcKind) + pcName;
            if (Iterates(aJob)) aJob.iIterations = 4, SetBox(aJob, 0, 0, 18.5f, 6.5f);
            pApply(aJob);
            if ((Iterates(aJob) || strOnly.find('i') == strOnly.npos) &&
                (!IsOnCuda() || strOnly.find('h') == strOnly.npos))
                vJobs.push_back(aJob);
        }
    return vJobs;
}

class OracleJob : public testing::TestWithParam<std::tuple<TestJob, std::string>>
{
protected:
    void TearDown() override { SetBackend(nullptr); }
};
std::string NameOfJob(const testing::TestParamInfo<OracleJob::ParamType>& rInfo)
{
    return std::get<0>(rInfo.param).strName + "_" + std::get<1>(rInfo.param);
}
INSTANTIATE_TEST_SUITE_P(Jobs, OracleJob,
                         testing::Combine(testing::ValuesIn(GetJobs()),
                                          testing::ValuesIn(GetTestBackends())),
                         NameOfJob);
}  // namespace

TEST_P(OracleJob, FollowsTheFormulaOnAnyMachine)
{
    auto [aJob, strBackend] = GetParam();
    if (!MakeTestBackend(strBackend, 1)) GTEST_SKIP() << "no device for " << strBackend;
    const TestData aStart = MakeData(aJob, 7), aExpected = RunOracle(aJob, aStart);
    const TestData aResult = RunJob(aJob, aStart, {strBackend, 2});
    ASSERT_EQ(aResult.strError, "");
    // One operation: the rounding of float sums of up to a few hundred values. Iterations carry it
    // on.
    EXPECT_LE(JobError(aResult, aExpected), Iterates(aJob) ? 5e-4 : 2e-5);
    EXPECT_TRUE(aJob.bReproject || aResult.vfProjs == aStart.vfProjs);

    if (strBackend == "cuda")
    {
        // The host adds the samples of a ray in another order, those of a voxel in the same.
        const TestData aHost = RunJob(aJob, aStart, {"host", 2});
        EXPECT_LE(JobError(aResult, aHost), aJob.eMethod == EMethod::eEm ? 3e-5 : 1e-5);
        const bool bSame = !aJob.bReproject && !Iterates(aJob);
        EXPECT_TRUE(!bSame || !HostFuses() || aResult.vfVolume == aHost.vfVolume);
    }

    // Neither workers nor batches, nor the cores of a device, change a bit, nor do wider registers.
    std::vector<Machine> vMachines = {{strBackend, 1, 1}, {strBackend, 2, 2}};
    if (!IsOnCuda())
        vMachines.insert(
            vMachines.end(),
            {{strBackend, 1, 16}, {strBackend, 2, 5}, {strBackend, 7}, {strBackend, 40, 5}});
    if (strBackend == "baseline")
        vMachines.insert(vMachines.end(), {{strBackend, 2, 0, 3}, {strBackend, 2, 0, 8}});
    if (strBackend == "avx2" && GetTestBackends().front() == "avx512")
        vMachines.push_back({"avx512"});
    if (aJob.strName.ends_with("All"))
        for (const Machine& rMachine : vMachines)
        {
            SCOPED_TRACE(testing::Message() << "machine " << &rMachine - &vMachines[0]);
            const TestData aOther = RunJob(aJob, aStart, rMachine);
            EXPECT_EQ(aOther.strError, "");
            EXPECT_EQ(aOther.vfVolume, aResult.vfVolume);
            EXPECT_EQ(aOther.vfProjs, aResult.vfProjs);
            EXPECT_LE(RelativeError(aOther.vdRfactor, aResult.vdRfactor), 1e-12);  // in any order
        }
}

// What is no number spoils the rays that pass it, and the row that it lies in.
TEST_P(Kernel, BadValuesStayInTheirRaysAndRows)
{
    TestJob aJob;
    aJob.bReproject = true;
    SetSizes(aJob, 170, 70, 149);
    aJob.iY = 3;
    aJob.bInvalid = true;
    const TestData aGood = MakeData(aJob, 7);
    TestData aBad = aGood;
    const auto IsBadRow = [](std::size_t tPixel, int iX) { return tPixel / iX % 3 == 2; };
    for (const int i : {171, 330, 11728, 10750})
        aBad.vfVolume[i % 170 + (3 * (i / 170) + 2) * 170] = NAN;
    const auto vfGot = RunJob(aJob, aBad, {GetParam()}).vfProjs;
    const auto vfExpected = RunOracle(aJob, aBad).vfProjs;
    int iTouched = 0;
    for (std::size_t i = 0; i < vfGot.size(); ++i)
    {
        iTouched += std::isnan(vfGot[i]) != std::isnan(vfExpected[i]);
        EXPECT_FALSE(std::isnan(vfGot[i]) && !IsBadRow(i, 149)) << i;
    }
    EXPECT_LE(iTouched, 20) << "rays that round to the other side of a voxel's edge";

    aJob.bReproject = false;
    aJob.iIterations = 2;
    for (int n = 0; n < 7; ++n)
        for (const int x : {0, 74}) aBad.vfProjs[149 * (3 * n + 2) + x] = NAN;
    for (const EMethod eMethod : {EMethod::eBackProj, EMethod::eSart, EMethod::eEm})
    {
        aJob.eMethod = eMethod;
        const TestData aClean = RunJob(aJob, aGood, {GetParam()});
        const TestData aResult = RunJob(aJob, aBad, {GetParam()});
        for (std::size_t i = 0; i < aResult.vfVolume.size(); ++i)
            ASSERT_TRUE(IsBadRow(i, 170) || aResult.vfVolume[i] == aClean.vfVolume[i]) << i;
        EXPECT_LE(RelativeError(aResult.vfVolume, RunOracle(aJob, aBad).vfVolume), 5e-4);
    }
}

// Ratios of EM have the sums below them: next to nothing is far from nothing.
TEST_P(Kernel, RaysThatTouchNothingSumToZero)
{
    TestJob aJob;
    aJob.bReproject = true;
    SetSizes(aJob, 17, 9, 31);
    aJob.vfAngles.clear();
    for (float fAngle = -90; fAngle <= 90; fAngle += 0.37f) aJob.vfAngles.push_back(fAngle);
    TestData aData = MakeData(aJob, 7);
    for (int i = 0; i < 17 * 9; ++i)  // but the corners, where rays begin and end
        if (i % 17 % 16 != 0 || i / 17 % 8 != 0) aData.vfVolume[i] = 0;
    const auto vfGot = RunJob(aJob, aData, {GetParam()}).vfProjs;
    const auto vfExpected = RunOracle(aJob, aData).vfProjs;
    int iZeros = 0, iWrong = 0;
    for (std::size_t i = 0; i < vfGot.size(); ++i)
    {
        iZeros += vfExpected[i] == 0;
        iWrong += (vfExpected[i] == 0) != (vfGot[i] == 0);
    }
    EXPECT_GT(iZeros, 1000);
    EXPECT_LE(iWrong, IsOnCuda() ? 2 : 0) << "rays that round to the other side of a voxel";
}

TEST(JobInputs, ThatDoNotFitAreRefused)
{
    const std::pair<const char*, void (*)(TestJob&, TestData&)> aCases[] = {
        {"SumAbs: projection 7 of 7", [](TestJob& r, TestData&) { r.vuiList.push_back(7); }},
        {"0 sets, 1 iterations", [](TestJob& r, TestData&) { r.uiSets = 0; }},
        {"relaxation factors: 1 given, 2 needed", [](TestJob& r, TestData&) { r.iIterations = 2; }},
        {"column ranges: 5 given, 112 needed",
         [](TestJob&, TestData& r) { r.vuiRangeX.resize(5); }},
        // A worker that fails takes the others with it: none waits for ever.
        {"smooth: no memory on device 99", [](TestJob& r, TestData&) { r.iFailingWorker = 0; }}};
    for (const auto& [pcReason, pChange] : aCases)
    {
        TestJob aJob;
        aJob.iY = 8;
        TestData aData = MakeData(aJob, 1);
        aJob.vuiList = {0};
        aJob.vfRelax = {1};
        SetKernel(aJob, 3, 1, 1);
        aJob.uiInterval = 1;
        pChange(aJob, aData);
        const TestData aResult = RunJob(aJob, aData, {"host", 2});
        EXPECT_EQ(aResult.strError, pcReason);
        EXPECT_EQ(aResult.vfProjs, aData.vfProjs);  // whatever a worker had done to its rows
    }
    SetBackend(nullptr);
}
