#include <gtest/gtest.h>

#include <cmath>
#include <numeric>

#include "gpulib/Device/Backend.h"
#include "tests/job/JobRunner.h"

// What a user sees: a specimen comes back from its projections, and the residuals fall.

namespace
{
class Physics : public testing::TestWithParam<std::string>
{
protected:
    Physics()
    {
        m_aJob.iProjX = m_aJob.iVolX = 64;
        m_aJob.iVolZ = 40;
        m_aJob.iY = 4;
        m_aJob.iIterations = 30;
        m_aJob.aBox = OracleBox{{0, 0}, {32, 20}};
        m_aJob.vfAngles.clear();
        for (int n = 0; n < 61; ++n) m_aJob.vfAngles.push_back(float(3 * n - 90));
    }

    bool mInBlock(int x, int y, int z) const
    {
        return std::abs(x - 26 - y) < 6 && std::abs(z - 22) < 5;
    }

    /// A block of density 3 in matter of density 1 that fills an ellipse.
    TestData mMakePhantom() const
    {
        TestData aData = MakeData(m_aJob, 1);
        std::size_t i = 0;
        for (int z = 0; z < m_aJob.iVolZ; ++z)
            for (int y = 0; y < m_aJob.iY; ++y)
                for (int x = 0; x < m_aJob.iVolX; ++x)
                {
                    const double dX = (x - 31.5) / 24, dZ = (z - 19.5) / 15;
                    const bool bMatter = dX * dX + dZ * dZ < 1;
                    aData.vfVolume[i++] = mInBlock(x, y, z) ? 3.0f : bMatter ? 1.0f : 0.0f;
                }
        return aData;
    }

    /// Projects the phantom, forgets it and reconstructs.
    TestData mBringBack(EMethod eMethod, const TestData& rPhantom)
    {
        m_aJob.bReproject = true;
        TestData aData = RunJob(m_aJob, rPhantom, GetParam(), 2);
        m_aJob.bReproject = false;
        m_aJob.eMethod = eMethod;
        aData.vfVolume.assign(aData.vfVolume.size(), 0.0f);
        return RunJob(m_aJob, aData, GetParam(), 2);
    }

    TestJob m_aJob;
};
INSTANTIATE_TEST_SUITE_P(Sets, Physics, testing::ValuesIn(GetHostInstructionSets()),
                         [](const auto& rInfo) { return rInfo.param; });
}  // namespace

TEST_P(Physics, PhantomComesBack)
{
    for (const EMethod eMethod : {EMethod::eSart, EMethod::eEm})
        for (const unsigned uiSets : {1U, 8U})
        {
            SCOPED_TRACE(testing::Message() << "method " << int(eMethod) << ", sets " << uiSets);
            m_aJob.uiSets = uiSets;
            const TestData aPhantom = mMakePhantom();
            const TestData aResult = mBringBack(eMethod, aPhantom);
            ASSERT_EQ(aResult.strError, "");
            EXPECT_LE(RelativeError(aResult.vfVolume, aPhantom.vfVolume), 0.15);

            double dMean = 0;
            int iVoxels = 0;
            for (std::size_t i = 0; i < aResult.vfVolume.size(); ++i)
                if (aPhantom.vfVolume[i] == 3.0f) dMean += aResult.vfVolume[i], ++iVoxels;
            EXPECT_NEAR(dMean / iVoxels, 3.0, 0.3);
        }
}

TEST_P(Physics, ResidualsFallInEverySartIteration)
{
    const TestData aResult = mBringBack(EMethod::eSart, mMakePhantom());
    const std::size_t tProjs = m_aJob.vfAngles.size();
    double dBefore = 0;
    for (std::size_t p = 0; p < tProjs; ++p) dBefore += aResult.vdRfactor[2 * p];
    for (int i = 0; i < m_aJob.iIterations; ++i)
    {
        double dResidual = 0;
        for (std::size_t p = 0; p < tProjs; ++p)
            dResidual += aResult.vdRfactor[2 * (tProjs * i + p) + 1];
        EXPECT_LT(dResidual, dBefore) << "iteration " << i;
        dBefore = dResidual;
    }
}

TEST_P(Physics, FlatSliceProjectsToItsThickness)
{
    m_aJob.vfAngles = {0, 90};
    m_aJob.aBox.reset();
    m_aJob.bReproject = true;
    TestData aData = MakeData(m_aJob, 1);
    aData.vfVolume.assign(aData.vfVolume.size(), 1.0f);
    const TestData aResult = RunJob(m_aJob, aData, GetParam());
    for (int x = 0; x < 64; ++x)
    {
        EXPECT_EQ(aResult.vfProjs[x], 40.0f) << "column " << x;
        const bool bSeen = std::abs(x - 31.5) < 20;  // the width seen from the side is 40
        EXPECT_EQ(aResult.vfProjs[std::size_t(64) * m_aJob.iY + x], bSeen ? 64.0f : 0.0f)
            << "column " << x;
    }
}

TEST_P(Physics, VolumeIsNeverNegative)
{
    for (const EMethod eMethod : {EMethod::eSart, EMethod::eEm, EMethod::eBackProj})
    {
        m_aJob.eMethod = eMethod;
        TestData aData = MakeData(m_aJob, 2);
        for (std::size_t i = 0; i < aData.vfProjs.size(); ++i)
            if (i % 3) aData.vfProjs[i] *= -1;
        for (std::size_t i = 0; i < aData.vfVolume.size(); i += 5) aData.vfVolume[i] = NAN;
        const TestData aResult = RunJob(m_aJob, aData, GetParam());
        for (const float fValue : aResult.vfVolume) ASSERT_GE(fValue, 0.0f);
    }
}

TEST_P(Physics, InputsThatDoNotFitAreRefused)
{
    const auto Refused = [&](auto aChange)
    {
        TestJob aJob = m_aJob;
        TestData aData = MakeData(aJob, 1);
        aChange(aJob, aData);
        return RunJob(aJob, aData, GetParam(), 2).strError;
    };
    EXPECT_EQ(Refused(
                  [](TestJob& r, TestData&) {
                      r.vuiList = {0, 61};
                  }),
              "SumAbs: projection 61 of 61");
    EXPECT_EQ(Refused([](TestJob& r, TestData&) { r.uiSets = 0; }), "0 sets, 30 iterations");
    EXPECT_EQ(Refused([](TestJob& r, TestData&) { r.vfRelax.assign(29, 1.0f); }),
              "relaxation factors: 29 given, 30 needed");
    EXPECT_EQ(Refused([](TestJob&, TestData& r) { r.vuiRangeX.resize(5); }),
              "column ranges: 5 given, 488 needed");
}
