#include "gpulib/Device/GBackProj.h"
#include "tests/device/Rig.h"

namespace
{
using Range = std::pair<float, float>;

struct Setting
{
    int iVolX, iVolZ, iProjX, iRows;
    float fRelax;
    bool bEm;
};

const std::vector<double> g_vdAngles = {0, 90, -90, 120, -60, 61.7, 37.3, -12, 3};

/// Ranges of all rows and projections, those of a kind that a hostile client sends among them.
std::vector<Range> MakeRanges(int iRows, int iProjs, int iX)
{
    std::vector<Range> vRanges;
    for (int i = 0; i < iRows * iProjs; ++i)
    {
        const float fInset = float(i * 7 % 11) + 0.37f;
        switch (i % 9)
        {
        case 3:
            vRanges.emplace_back(iX + 1, 0);
            break;
        case 5:
            vRanges.emplace_back(4e9f, 4.29e9f);
            break;
        case 7:
            vRanges.emplace_back(0, 4.29e9f);
            break;
        default:
            vRanges.emplace_back(fInset, iX - fInset);
            break;
        }
    }
    return vRanges;
}

/// \param rRanges  [projection][row]
Image BackProject(const Setting& rS, const Image& rVol, const Image& rProjs,
                  const std::vector<Range>& rRanges, int iFirstRow, int iRows, int iFirst, int iEnd)
{
    Rig aRig;
    aRig.SetAngles(g_vdAngles);
    std::vector<unsigned> vuiIndex(g_vdAngles.size());
    for (unsigned i = 0; i < vuiIndex.size(); ++i)
        vuiIndex[i] = (i * 2) % unsigned(vuiIndex.size());
    aRig.SetIndex(vuiIndex);
    std::vector<float> vfLow, vfHigh;
    for (const Range& rRange : rRanges)
    {
        vfLow.push_back(rRange.first);
        vfHigh.push_back(rRange.second);
    }
    aRig.aRange.SetChannels(2);
    EXPECT_TRUE(aRig.aRange.Create(rVol.iRows, rProjs.iHeight));
    EXPECT_TRUE(aRig.aRange.HostToDevice(vfLow.data(), vfHigh.data()));
    Rig::Fill(aRig.aVol, rVol.Rows(iFirstRow, iRows), 1);
    Rig::Fill(aRig.aProjs, rProjs.Rows(iFirstRow, iRows));

    GBackProj aBack;
    aBack.SetVolSize(rS.iVolX, rS.iVolZ);
    aBack.SetProjSize(rS.iProjX);
    aBack.SetSetRange(iFirst, iEnd);
    aBack.SetRelax(rS.fRelax);
    aBack.SetProjIndexArray(aRig.aIndex.GetImage());
    aBack.SetCosSinArray(aRig.aCosSin.GetImage());
    aBack.SetRangeXArray(aRig.aRange.GetImage());
    aBack.SetProjsArray(aRig.aProjs.GetImage());
    aBack.SetVolArray(aRig.aVol.GetImage());
    EXPECT_TRUE(rS.bEm ? aBack.DoItEm(iFirstRow, iRows) : aBack.DoIt(iFirstRow, iRows));

    Image aFramed(rS.iVolX + 2, rS.iVolZ + 2, iRows);
    EXPECT_TRUE(aRig.aVol.ToHost(aFramed.Borrow(), 0, 0, rS.iVolX + 2, rS.iVolZ + 2));
    Image aResult(rS.iVolX, rS.iVolZ, iRows);
    double dFrame = 0;
    for (int r = 0; r < iRows; ++r)
        for (int z = 0; z < rS.iVolZ + 2; ++z)
            for (int x = 0; x < rS.iVolX + 2; ++x)
            {
                const float fValue = aFramed.At(r, z, x);
                if (x >= 1 && z >= 1 && x <= rS.iVolX && z <= rS.iVolZ)
                    aResult.At(r, z - 1, x - 1) = fValue;
                else
                    dFrame += std::abs(fValue);
            }
    EXPECT_EQ(dFrame, 0) << "the frame stays 0";
    return aResult;
}

struct Expected
{
    double dValue;
    bool bCertain;  ///< no detector coordinate within rounding of the end of a range
};

Expected Voxel(const Setting& rS, const Image& rVol, const Image& rProjs,
               const std::vector<Range>& rRanges, int r, int z, int x, int iFirst, int iEnd)
{
    double dSum = 0, dHits = 0;
    bool bCertain = true;
    for (int p = iFirst; p < iEnd; ++p)
    {
        const int n = (p * 2) % int(g_vdAngles.size());
        const double dAngle = g_vdAngles[n] * M_PI / 180;
        const double dU = (rS.iProjX - 1) / 2.0 + (x - (rS.iVolX - 1) / 2.0) * std::cos(dAngle) +
                          (z - (rS.iVolZ - 1) / 2.0) * std::sin(dAngle);
        const auto [fLow, fHigh] = rRanges[std::size_t(n) * rVol.iRows + r];
        bCertain = bCertain && std::abs(dU - fLow) > 1e-3 && std::abs(dU - (fHigh - 1.0)) > 1e-3;
        if (dU < fLow || (rS.bEm ? dU >= fHigh - 1.0 : dU > fHigh - 1.0)) continue;
        const double dIn = std::clamp(dU, 0.0, rS.iProjX - 1.0);
        const int iLeft = std::min(int(dIn), rS.iProjX - 1);
        const int iRight = std::min(iLeft + 1, rS.iProjX - 1);
        dSum += rProjs.At(r, n, iLeft) +
                RoundWeight(testing::TestWithParam<std::string>::GetParam(), dIn - iLeft) *
                    (double(rProjs.At(r, n, iRight)) - rProjs.At(r, n, iLeft));
        ++dHits;
    }
    const double dOld = rVol.At(r, z, x);
    const double dNew = rS.bEm ? dOld * (1 + rS.fRelax * (dSum - dHits) / (iEnd - iFirst))
                               : dOld + rS.fRelax * dSum / (dHits + 1e-6f);
    return {std::max(dNew, 0.0), bCertain};
}
}  // namespace

TEST_P(Kernel, BackFollowsTheUpdate)
{
    for (const Setting& rS : {Setting{37, 17, 37, 3, 1, false},
                              {37, 17, 37, 3, 1, true},
                              {64, 33, 80, 16, 0.3f, false},
                              {65, 31, 40, 16, 0.3f, true},
                              {1, 1, 2, 1, 1, false},
                              {257, 5, 300, 1, 1.5f, true},
                              {15, 70, 16, 8, 1, false},
                              {43, 38, 50, 21, 1, true},
                              {16, 40, 2, 5, 1, false},
                              {45, 45, 1, 4, 1, true}})
    {
        SCOPED_TRACE(testing::Message() << rS.iVolX << " x " << rS.iVolZ << ", " << rS.iProjX
                                        << " columns, " << rS.iRows << " rows, EM " << rS.bEm);
        const int iProjs = int(g_vdAngles.size());
        const Image aVol = RandomImage(rS.iVolX, rS.iVolZ, rS.iRows, 0, 1);
        const Image aProjs = RandomImage(rS.iProjX, iProjs, rS.iRows, -1, 1.5f, 2);
        const std::vector<Range> vRanges = MakeRanges(rS.iRows, iProjs, rS.iProjX);
        const Image aNew = BackProject(rS, aVol, aProjs, vRanges, 0, rS.iRows, 1, iProjs);
        std::vector<double> vdExpected;
        std::vector<float> vfGot;
        for (int r = 0; r < rS.iRows; ++r)
            for (int z = 0; z < rS.iVolZ; ++z)
                for (int x = 0; x < rS.iVolX; ++x)
                {
                    const auto [dValue, bCertain] =
                        Voxel(rS, aVol, aProjs, vRanges, r, z, x, 1, iProjs);
                    if (!bCertain) continue;
                    vdExpected.push_back(dValue);
                    vfGot.push_back(aNew.At(r, z, x));
                }
        EXPECT_GE(vfGot.size() * 10, aNew.Size() * 9) << "too few voxels judged";
        EXPECT_LE(RelativeError(vfGot, vdExpected), Tolerance(GetParam(), 2e-5));
    }
}

TEST_P(Kernel, BackTreatsTheLastColumnByMethod)
{
    // At 0 degrees voxel x falls on column x exactly. Columns 3 to 6 are valid: the last of them
    // counts for SART alone.
    for (const bool bEm : {false, true})
    {
        const Setting aS = {10, 1, 10, 2, 1, bEm};
        Image aVol(10, 1, 2), aProjs(10, int(g_vdAngles.size()), 2);
        aVol.vf.assign(aVol.Size(), 1);
        aProjs.vf.assign(aProjs.Size(), 3);
        const std::vector<Range> vRanges(g_vdAngles.size() * 2, Range{3, 7});
        const Image aNew = BackProject(aS, aVol, aProjs, vRanges, 0, 2, 0, 1);
        for (int x = 0; x < 10; ++x)
        {
            const bool bHit = x >= 3 && x <= (bEm ? 5 : 6);
            EXPECT_NEAR(aNew.At(1, 0, x),
                        !bHit ? 1
                        : bEm ? 3
                              : 4,
                        1e-5)
                << "EM " << bEm << " " << x;
        }
    }
}

TEST_P(Kernel, BackSurvivesBadValues)
{
    const float fNan = std::nanf(""), fInf = INFINITY;
    for (const bool bEm : {false, true})
    {
        const Setting aS = {20, 9, 20, 5, 1, bEm};
        const int iProjs = int(g_vdAngles.size());
        Image aVol = RandomImage(20, 9, 5, 0, 1), aProjs = RandomImage(20, iProjs, 5, 0, 1);
        std::vector<Range> vRanges(std::size_t(iProjs) * 5, Range{0, 20});
        const Image aGood = BackProject(aS, aVol, aProjs, vRanges, 0, 5, 0, iProjs);
        for (int n = 0; n < iProjs; ++n) aProjs.At(2, n, 11) = n % 2 ? fNan : fInf;
        aVol.At(2, 4, 4) = fNan;
        const Image aNew = BackProject(aS, aVol, aProjs, vRanges, 0, 5, 0, iProjs);
        EXPECT_EQ(aNew.At(2, 4, 4), 0) << "NaN becomes 0";
        for (const int r : {0, 1, 3, 4})
            EXPECT_TRUE(SameBits(aNew.Rows(r, 1).vf, aGood.Rows(r, 1).vf)) << "row " << r;

        for (Range& rRange : vRanges) rRange = {fNan, -fInf};
        for (const float fValue : BackProject(aS, aVol, aProjs, vRanges, 0, 5, 0, iProjs).vf)
            EXPECT_FALSE(fValue < 0);
        // An empty set: SART keeps the slice, EM clears it.
        const Image aIdle = BackProject(aS, aGood, aProjs, vRanges, 0, 5, 3, 3);
        EXPECT_TRUE(SameBits(aIdle.vf, bEm ? Image(20, 9, 5).vf : aGood.vf)) << "EM " << bEm;
    }
}

TEST_P(Kernel, BackOfARowKnowsNoNeighbours)
{
    for (const bool bEm : {false, true})
    {
        const Setting aS = {70, 41, 66, 29, 0.7f, bEm};
        const int iProjs = int(g_vdAngles.size());
        const Image aVol = RandomImage(70, 41, 29, 0, 1);
        const Image aProjs = RandomImage(66, iProjs, 29, -1, 2, 3);
        const std::vector<Range> vRanges = MakeRanges(29, iProjs, 66);
        const Image aAll = BackProject(aS, aVol, aProjs, vRanges, 0, 29, 0, iProjs);
        for (const auto& [iFirst, iCount] : {std::pair{0, 1}, {12, 1}, {4, 4}, {3, 7}, {13, 16}})
            EXPECT_TRUE(
                SameBits(aAll.Rows(iFirst, iCount).vf,
                         BackProject(aS, aVol, aProjs, vRanges, iFirst, iCount, 0, iProjs).vf))
                << iCount << " rows from " << iFirst << ", EM " << bEm;
    }
}
