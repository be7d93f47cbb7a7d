#include <gtest/gtest.h>

#include <cmath>

#include "gpulib/Device/Backend.h"
#include "tests/job/JobRunner.h"

// What a user sees: a specimen comes back from its projections, and the residuals fall.
TEST(Physics, PhantomComesBackAndResidualsFall)
{
    TestJob aJob;
    aJob.iProjX = aJob.iVolX = 64;
    aJob.iVolZ = 40;
    aJob.aBox = OracleBox{{0, 0}, {32, 20}};
    aJob.vfAngles.clear();
    for (int n = 0; n < 61; ++n) aJob.vfAngles.push_back(float(3 * n - 90));
    // A block of density 3 in matter of density 1 that fills an ellipse.
    TestData aPhantom = MakeData(aJob, 1);
    for (std::size_t i = 0; i < aPhantom.vfVolume.size(); ++i)
    {
        const double dX = double(i % 64) - 31.5, dY = double(i / 64 % 5),
                     dZ = double(i / 320) - 19.5;
        const bool bBlock = std::abs(dX + 5.5 - dY) < 6 && std::abs(dZ - 2.5) < 5;
        const bool bMatter = dX * dX / 576 + dZ * dZ / 225 < 1;
        aPhantom.vfVolume[i] = bBlock ? 3.0f : bMatter ? 1.0f : 0.0f;
    }
    aJob.bReproject = true;
    TestData aStart = RunJob(aJob, aPhantom, {"host", 2});
    // Untilted, the block adds 10 times 2 to the 29 pixels of matter in the middle.
    EXPECT_NEAR(aStart.vfProjs[std::size_t(30) * 320 + 26], 49, 2);
    aStart.vfVolume.assign(aStart.vfVolume.size(), 0.0f);
    aJob.bReproject = false;
    aJob.iIterations = 30;
    for (const EMethod eMethod : {EMethod::eSart, EMethod::eEm})
        for (const unsigned uiSets : {1U, 8U})
        {
            SCOPED_TRACE(testing::Message() << "method " << int(eMethod) << ", sets " << uiSets);
            aJob.eMethod = eMethod;
            aJob.uiSets = uiSets;
            const TestData aResult = RunJob(aJob, aStart, {"host", 2});
            EXPECT_LE(RelativeError(aResult.vfVolume, aPhantom.vfVolume), 0.15);
            double dMean = 0, dBefore = HUGE_VAL;
            int iVoxels = 0;
            for (std::size_t i = 0; i < aResult.vfVolume.size(); ++i)
                if (aPhantom.vfVolume[i] == 3.0f) dMean += aResult.vfVolume[i], ++iVoxels;
            EXPECT_NEAR(dMean / iVoxels, 3.0, 0.3);
            for (int i = 0; i < 30 && uiSets == 1 && eMethod == EMethod::eSart; ++i)
            {
                double dResidual = 0;
                for (int p = 0; p < 61; ++p)
                    dResidual += aResult.vdRfactor[std::size_t(2 * (61 * i + p) + 1)];
                EXPECT_LT(dResidual, dBefore) << "iteration " << i;
                dBefore = dResidual;
            }
        }
    SetBackend(nullptr);
}

// The cosine of 90 degrees is 0: rays meet the middles of the voxels.
TEST(Physics, FlatSliceProjectsToItsThickness)
{
    TestJob aJob;
    aJob.bReproject = true;
    aJob.iProjX = aJob.iVolX = 64;
    aJob.iVolZ = 40;
    aJob.vfAngles = {0, 90};
    TestData aData = MakeData(aJob, 1);
    aData.vfVolume.assign(aData.vfVolume.size(), 1.0f);
    const TestData aResult = RunJob(aJob, aData, {"host"});
    for (int x = 0; x < 64; ++x)
    {
        EXPECT_EQ(aResult.vfProjs[x], 40) << "column " << x;
        const bool bSeen = std::abs(x - 31.5) < 20;  // the width seen from the side is 40
        EXPECT_EQ(aResult.vfProjs[64 * 5 + x], bSeen ? 64 : 0) << "column " << x;
    }
    SetBackend(nullptr);
}
