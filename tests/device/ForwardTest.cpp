#include "gpulib/Device/GForwardProj.h"
#include "tests/device/Rig.h"

namespace
{
struct Case
{
    int iVolX, iVolZ, iProjX, iRows;
};

const std::vector<double> g_vdAngles = {0, 90, -90, 120, -60, 60, 37.3, -1e-4, 89.9999, 179, -45};

/// The slice of one row by its formula: bilinear, 0 from one voxel outside on.
double Sample(const Image& rVol, int iRow, double dX, double dZ)
{
    const double dBaseX = std::floor(dX), dBaseZ = std::floor(dZ);
    const std::string& rBackend = testing::TestWithParam<std::string>::GetParam();
    const double dRight = RoundWeight(rBackend, dX - dBaseX);
    const double dBelow = RoundWeight(rBackend, dZ - dBaseZ);
    double dSum = 0;
    for (int k = 0; k < 4; ++k)
    {
        const double dTexelX = dBaseX + k % 2, dTexelZ = dBaseZ + k / 2;
        if (dTexelX < 0 || dTexelX >= rVol.iWidth || dTexelZ < 0 || dTexelZ >= rVol.iHeight)
            continue;
        dSum += (k % 2 ? dRight : 1 - dRight) * (k / 2 ? dBelow : 1 - dBelow) *
                rVol.At(iRow, int(dTexelZ), int(dTexelX));
    }
    return dSum;
}

/// Sum along the ray of column x, in voxel coordinates. The number of samples is by definition
/// that of float arithmetic, so it is computed so.
double RaySum(const Image& rVol, int iRow, int iProjX, int x, float fCos, float fSin)
{
    const int iLength = int(rVol.iHeight * fCos + rVol.iWidth * std::abs(fSin) + 0.5f);
    const double dU = x - (iProjX - 1) / 2.0;
    double dSum = 0;
    for (int i = 0; i < iLength + 2; ++i)
    {
        const double dT = i - (iLength + 1) / 2.0;
        dSum += Sample(rVol, iRow, (rVol.iWidth - 1) / 2.0 + dU * fCos - dT * fSin,
                       (rVol.iHeight - 1) / 2.0 + dU * fSin + dT * fCos);
    }
    return dSum;
}

Image Project(const Image& rVol, int iProjX, int iFirst, int iEnd)
{
    Rig aRig;
    aRig.SetAngles(g_vdAngles);
    std::vector<unsigned> vuiIndex(g_vdAngles.size());  // backwards
    for (unsigned i = 0; i < vuiIndex.size(); ++i) vuiIndex[i] = unsigned(vuiIndex.size()) - 1 - i;
    aRig.SetIndex(vuiIndex);
    Rig::Fill(aRig.aVol, rVol, 1);
    Image aBefore(iProjX, int(g_vdAngles.size()), rVol.iRows);
    aBefore.vf.assign(aBefore.Size(), -7);
    Rig::Fill(aRig.aSums, aBefore);

    GForwardProj aForward;
    aForward.SetVolSize(rVol.iWidth, rVol.iHeight);
    aForward.SetProjX(iProjX);
    aForward.SetSetRange(iFirst, iEnd);
    aForward.SetProjIndexArray(aRig.aIndex.GetImage());
    aForward.SetCosSinArray(aRig.aCosSin.GetImage());
    aForward.SetVolArray(aRig.aVol.GetImage());
    EXPECT_TRUE(aForward.DoIt(aRig.aSums.GetImage()));
    return Rig::Read(aRig.aSums, rVol.iRows);
}
}  // namespace

TEST_P(Kernel, ForwardFollowsTheRaySum)
{
    for (const auto [iVolX, iVolZ, iProjX, iRows] : {Case{1, 1, 1, 1},
                                                     {37, 17, 37, 3},
                                                     {64, 15, 80, 16},
                                                     {40, 33, 41, 27},
                                                     {16, 130, 33, 5},
                                                     {257, 70, 257, 1},
                                                     {300, 64, 129, 8},
                                                     {2, 300, 17, 9}})
    {
        SCOPED_TRACE(testing::Message() << iVolX << " x " << iVolZ << ", " << iProjX << " columns, "
                                        << iRows << " rows");
        const Image aVol = RandomImage(iVolX, iVolZ, iRows, -0.2f, 1);
        const int iProjs = int(g_vdAngles.size());
        const Image aSums = Project(aVol, iProjX, 1, iProjs);
        Rig aRig;
        aRig.SetAngles(g_vdAngles);
        for (int n = 0; n + 1 < iProjs; ++n)
        {
            std::vector<double> vdExpected;
            std::vector<float> vfGot;
            for (int r = 0; r < iRows; ++r)
                for (int x = 0; x < iProjX; ++x)
                {
                    vdExpected.push_back(RaySum(aVol, r, iProjX, x, aRig.vfCos[n], aRig.vfSin[n]));
                    vfGot.push_back(aSums.At(r, n, x));
                }
            EXPECT_LE(RelativeError(vfGot, vdExpected), Tolerance(GetParam(), 2e-5))
                << g_vdAngles[n] << " degrees";
        }
        for (int x = 0; x < iProjX; ++x)  // the first of the list is not in the set
            EXPECT_EQ(aSums.At(iRows - 1, iProjs - 1, x), -7) << "column " << x;
    }
}

TEST_P(Kernel, ForwardOfOnesIsTheThickness)
{
    Image aVol(40, 12, 2);
    aVol.vf.assign(aVol.Size(), 1);
    const Image aSums = Project(aVol, 40, 0, int(g_vdAngles.size()));
    for (int x = 0; x < 40; ++x)
    {
        EXPECT_FLOAT_EQ(aSums.At(1, 0, x), 12) << "0 degrees, column " << x;
        EXPECT_FLOAT_EQ(aSums.At(0, 1, x), x >= 14 && x < 26 ? 40 : 0) << "90 degrees, " << x;
    }
}

TEST_P(Kernel, ForwardSpreadsABadVoxelAlongItsRaysOnly)
{
    Image aVol = RandomImage(170, 70, 2, 0, 1);
    for (const auto& [x, z] : {std::pair{0, 0}, {160, 0}, {169, 69}, {40, 63}})
        aVol.At(1, z, x) = std::nanf("");
    const int iProjs = int(g_vdAngles.size());
    const Image aSums = Project(aVol, 190, 0, iProjs);
    Rig aRig;
    aRig.SetAngles(g_vdAngles);
    for (int n = 0; n < iProjs; ++n)
    {
        if (g_vdAngles[n] == -90) continue;  // its rays miss the texel centres by rounding alone
        for (int x = 0; x < 190; ++x)
        {
            const double dExpected = RaySum(aVol, 1, 190, x, aRig.vfCos[n], aRig.vfSin[n]);
            EXPECT_EQ(std::isnan(aSums.At(1, n, x)), std::isnan(dExpected))
                << g_vdAngles[n] << " degrees, column " << x;
            EXPECT_FALSE(std::isnan(aSums.At(0, n, x)));
        }
    }
}

TEST_P(Kernel, ForwardOfARowKnowsNoNeighbours)
{
    const Image aVol = RandomImage(150, 90, 29, -1, 1);
    const int iProjs = int(g_vdAngles.size());
    const Image aAll = Project(aVol, 140, 0, iProjs);
    for (const auto& [iFirst, iCount] : {std::pair{0, 1}, {12, 1}, {4, 4}, {3, 7}, {13, 16}})
        EXPECT_TRUE(SameBits(aAll.Rows(iFirst, iCount).vf,
                             Project(aVol.Rows(iFirst, iCount), 140, 0, iProjs).vf))
            << iCount << " rows from " << iFirst;
}

TEST_P(Kernel, CombineFollowsItsRules)
{
    const float fNan = std::nanf("");
    struct Rule
    {
        float fMeasured, fSum, fDiff, fRatio;
    };
    const std::vector<Rule> vRules = {{6, 4, 2, 1.5f},   {-1, 2, -3, 1},        {5, 0, 5, 1},
                                      {0, 2, -2, 0},     {1, fNan, fNan, fNan}, {fNan, 2, fNan, 1},
                                      {-0.0f, 4, -4, 0}, {3, -2, 5, -1.5f}};
    const int iX = int(vRules.size());
    for (const int iRows : {1, 2, 7, 16, 31})
    {
        Image aRaw(iX, 3, iRows), aSums(iX, 3, iRows);
        for (int r = 0; r < iRows; ++r)
            for (int x = 0; x < iX; ++x)
            {
                aRaw.At(r, 2, x) = vRules[x].fMeasured + float(r) * 0;
                aSums.At(r, 2, x) = vRules[x].fSum;
            }
        Rig aRig;
        aRig.SetIndex({1, 2, 0});
        Rig::Fill(aRig.aRaw, aRaw);
        Rig::Fill(aRig.aSums, aSums);
        Rig::Fill(aRig.aOut, aSums);
        GForwardProj aForward;
        aForward.SetProjX(iX);
        aForward.SetSetRange(1, 2);
        aForward.SetProjIndexArray(aRig.aIndex.GetImage());
        aForward.SetRawProjsArray(aRig.aRaw.GetImage());
        for (const bool bDiff : {true, false})
        {
            ASSERT_TRUE(bDiff ? aForward.DoDiff(aRig.aSums.GetImage(), aRig.aOut.GetImage())
                              : aForward.DoDiv(aRig.aSums.GetImage(), aRig.aOut.GetImage()));
            const Image aOut = Rig::Read(aRig.aOut, iRows);
            for (int x = 0; x < iX; ++x)
            {
                const float fGot = aOut.At(iRows - 1, 2, x);
                const float fExpected = bDiff ? vRules[x].fDiff : vRules[x].fRatio;
                EXPECT_TRUE(fGot == fExpected || (std::isnan(fGot) && std::isnan(fExpected)))
                    << fGot << " for " << vRules[x].fMeasured << " and " << vRules[x].fSum;
            }
        }
    }
}

// For the Kernel tests of all files of this program.
INSTANTIATE_TEST_SUITE_P(Backends, Kernel, testing::ValuesIn(GetTestBackends()),
                         [](const auto& rInfo) { return NameOf(rInfo.param); });
