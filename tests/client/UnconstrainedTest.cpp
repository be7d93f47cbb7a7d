// SART without its lower limit, over the server that has one.

#include "Support.h"
#include "talven/Reconstruction.h"
#include "tests/oracle/JobOracle.h"

namespace talven::test
{
namespace
{

/// Image i of [i][y][x].
ImageSource Give(const Floats& rImages)
{
    return [&rImages](int i, std::span<float> fPixels, std::string&)
    {
        std::copy_n(rImages.begin() + std::ptrdiff_t(fPixels.size()) * i, fPixels.size(),
                    fPixels.begin());
        return true;
    };
}

TEST(ClientUnconstrained, FollowsTheFormulaWithoutTheLimit)
{
    setenv("TALVEN_SERVER", TALVEN_SERVER_PROGRAM, 1);
    // Plain; more subsets than one, smoothing in between; from another volume.
    for (const int iCase : {0, 1, 2})
    {
        SCOPED_TRACE(iCase);
        TestJob aJob;
        aJob.bFree = true;
        aJob.aBox = {{0, 0}, {float(aJob.iVolX) / 2, float(aJob.iVolZ) / 2}};  // as without a box
        aJob.iIterations = 6;
        aJob.uiSets = iCase == 0 ? 1 : 3;
        ReconRequest aRequest;
        aRequest.iThickness = aJob.iVolZ;
        aRequest.iIterations = aJob.iIterations;
        aRequest.iSubsets = int(aJob.uiSets);
        aRequest.bInterleave = false;
        aRequest.bUnconstrained = true;
        if (iCase == 1)
        {
            const GaussianKernel aKernel = MakeGaussianKernel(0.6);
            aJob.uiInterval = unsigned(aRequest.iSmoothInterval = 2);
            aRequest.dSmoothSigma = 0.6;
            aJob.aiKernel = {aKernel.iSize, aKernel.iSize, aKernel.iSize};
            aJob.vfKernel = aKernel.vfValues;
        }
        TestData aStart;
        const auto iProjs = int(aJob.vfAngles.size());
        aStart.vfProjs = RandomImages(aJob.iProjX, aJob.iY, iProjs, -3, 2).vf;
        aStart.vfVolume = iCase == 2 ? RandomImages(aJob.iVolX, aJob.iY, aJob.iVolZ, -1, 1).vf
                                     : Floats(std::size_t(aJob.iVolX * aJob.iY * aJob.iVolZ));
        for (int i = 0; i < iProjs * aJob.iY; ++i)
            aStart.vuiRangeX.insert(aStart.vuiRangeX.end(), {0, unsigned(aJob.iProjX)});
        std::fill_n(aStart.vfProjs.begin() + aJob.iProjX, 4, -1e30f);  // of the second row
        aStart.vuiRangeX[2] = 4;
        const TestData aExpected = RunOracle(aJob, aStart);

        ReconPlan aPlan;
        std::string strError;
        ASSERT_TRUE(
            MakeReconPlan(aRequest, {aJob.iProjX, aJob.iY}, aJob.vfAngles, aPlan, strError));
        CMonitor aMonitor;
        CServerLink aLink;
        ASSERT_TRUE(aLink.Connect({}, aMonitor)) << aLink.GetError();
        CReconstruction aRun(aLink, aMonitor);
        Floats vfVolume;
        const auto Take = [&](int, std::span<const float> fSlice, std::string&)
        {
            vfVolume.insert(vfVolume.end(), fSlice.begin(), fSlice.end());
            return true;
        };
        ASSERT_TRUE(aRun.Upload(aPlan, Give(aStart.vfProjs),
                                iCase == 2 ? Give(aStart.vfVolume) : ImageSource()) &&
                    aRun.Run() && aRun.Download(Take))
            << aRun.GetError();
        EXPECT_EQ(aRun.GetCutVoxels(), 0u);
        EXPECT_LT(RelativeError(vfVolume, aExpected.vfVolume), 1e-5);
        std::vector<RfactorSums> aSums;
        for (std::size_t k = 0; k < aExpected.vdRfactor.size(); k += 2)
            aSums.push_back({float(aExpected.vdRfactor[k]), float(aExpected.vdRfactor[k + 1])});
        for (int i = 0; i < aJob.iIterations; ++i)
            EXPECT_NEAR(
                aRun.GetRfactors()[std::size_t(i)],
                CalcRfactor(std::span(aSums).subspan(std::size_t(i * iProjs), std::size_t(iProjs))),
                1e-6);
    }
}

}  // namespace
}  // namespace talven::test
