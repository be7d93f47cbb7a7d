#include "tests/oracle/JobOracle.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace
{
OracleRanges RangesOfRow(const TestJob& rJob, const TestData& rData, int iY)
{
    OracleRanges aRanges;
    for (int n = 0; n < int(rJob.vfAngles.size()); ++n)
    {
        const unsigned* puiPair = &rData.vuiRangeX[2 * std::size_t(n * rJob.iY + iY)];
        aRanges.emplace_back(int(puiPair[0]), int(puiPair[1]));
    }
    return aRanges;
}

/// X-Z slice iY of a volume.
OracleImage SliceOf(const std::vector<float>& rVolume, int iX, int iYs, int iY)
{
    OracleImage aSlice;
    for (std::size_t i = std::size_t(iY) * iX; i < rVolume.size(); i += std::size_t(iX) * iYs)
        aSlice.insert(aSlice.end(), &rVolume[i], &rVolume[i] + iX);
    return aSlice;
}

void StoreSlice(const OracleImage& rSlice, std::vector<float>& rVolume, int iX, int iYs, int iY)
{
    for (std::size_t k = 0; k < rSlice.size(); ++k)
        rVolume[(k / iX * iYs + iY) * iX + k % iX] = float(rSlice[k]);
}

/// Adds the sums of one row and block of iterations to those of the job, as pairs.
/// \param tFirst  of all iterations before the block
void AddRfactor(const OracleRfactor& rRow, std::size_t tFirst, std::vector<double>& rAll)
{
    for (std::size_t k = 0; !rRow.vdRaw.empty() && k < rAll.size() / 2; ++k)
        rAll[2 * k] += rRow.vdRaw[k % rRow.vdRaw.size()];
    for (std::size_t k = 0; k < rRow.vdDif.size(); ++k) rAll[2 * (tFirst + k) + 1] += rRow.vdDif[k];
}

void SmoothResult(const TestJob& rJob, std::vector<float>& rVolume)
{
    const OracleVolume aKernel(rJob.aiKernel[0], rJob.aiKernel[1], rJob.aiKernel[2], rJob.vfKernel);
    const OracleVolume aSmoothed =
        SmoothVolume(OracleVolume(rJob.iVolX, rJob.iY, rJob.iVolZ, rVolume), aKernel);
    rVolume.assign(aSmoothed.vd.begin(), aSmoothed.vd.end());
}
}  // namespace

std::vector<unsigned> GetList(const TestJob& rJob)
{
    if (!rJob.vuiList.empty()) return rJob.vuiList;
    std::vector<unsigned> vuiAll(rJob.vfAngles.size());
    std::iota(vuiAll.begin(), vuiAll.end(), 0U);
    return vuiAll;
}

std::vector<std::pair<int, int>> GetSets(const TestJob& rJob)
{
    const int iProjs = int(GetList(rJob).size()), iSets = int(rJob.uiSets);
    std::vector<std::pair<int, int>> vSets;
    for (int s = 0, iFirst = 0; s < iSets; ++s)
    {
        const int iSize = rJob.vuiSetSize.empty() ? iProjs / iSets + (s < iProjs % iSets)
                                                  : int(rJob.vuiSetSize[s]);
        vSets.emplace_back(std::min(iFirst, iProjs), std::min(iFirst + iSize, iProjs));
        iFirst += iSize;
    }
    return vSets;
}

TestData RunOracle(const TestJob& rJob, const TestData& rStart, double dShift, unsigned uiSeed)
{
    OracleJob aJob;
    aJob.iProjX = rJob.iProjX;
    aJob.iVolX = rJob.iVolX;
    aJob.iVolZ = rJob.iVolZ;
    aJob.vfAngles = rJob.vfAngles;
    aJob.vuiList = GetList(rJob);
    aJob.vSets = GetSets(rJob);
    aJob.vfRelax = rJob.vfRelax;
    aJob.iIterations = rJob.iIterations;
    aJob.eMethod = rJob.eMethod;
    if (!rJob.vBox.empty()) aJob.aBox = rJob.vBox[0];
    aJob.dShift = dShift;
    aJob.uiSeed = uiSeed;
    const COracle aOracle(aJob);

    TestData aResult = rStart;
    const std::size_t tProjs = aJob.vuiList.size();
    if (!rJob.bReproject && rJob.eMethod != EMethod::eBackProj)
        aResult.vdRfactor.resize(2 * tProjs * rJob.iIterations);
    for (int y = 0; rJob.bReproject && y < rJob.iY; ++y)
    {
        OracleImage aRows = SliceOf(rStart.vfProjs, rJob.iProjX, rJob.iY, y);
        aOracle.Reproject(SliceOf(rStart.vfVolume, rJob.iVolX, rJob.iY, y), aRows);
        StoreSlice(aRows, aResult.vfProjs, rJob.iProjX, rJob.iY, y);
    }
    if (rJob.bReproject) return aResult;

    const int iInterval = rJob.uiInterval > 0 ? int(rJob.uiInterval) : rJob.iIterations;
    for (int b = 0; b < std::max(rJob.iIterations / iInterval, 1); ++b)
    {
        const int iFirst = b * iInterval, iEnd = std::min(iFirst + iInterval, rJob.iIterations);
        for (int y = 0; y < rJob.iY; ++y)
        {
            OracleImage aSlice = SliceOf(aResult.vfVolume, rJob.iVolX, rJob.iY, y);
            const OracleRfactor aRfactor =
                aOracle.Reconstruct(SliceOf(rStart.vfProjs, rJob.iProjX, rJob.iY, y),
                                    RangesOfRow(rJob, rStart, y), aSlice, iFirst, iEnd);
            StoreSlice(aSlice, aResult.vfVolume, rJob.iVolX, rJob.iY, y);
            AddRfactor(aRfactor, tProjs * iFirst, aResult.vdRfactor);
        }
        if (!rJob.vfKernel.empty() && rJob.uiInterval > 0) SmoothResult(rJob, aResult.vfVolume);
    }
    return aResult;
}

template <class T>
double RelativeError(const std::vector<T>& rA, const std::vector<T>& rB)
{
    double dError = 0, dNorm = 0;
    for (std::size_t k = 0; k < std::min(rA.size(), rB.size()); ++k)
    {
        dError += (double(rA[k]) - rB[k]) * (double(rA[k]) - rB[k]);
        dNorm += double(rB[k]) * rB[k];
    }
    const double dRelative = dNorm > 0 ? std::sqrt(dError / dNorm) : std::sqrt(dError);
    const bool bUsable = rA.size() == rB.size() && std::isfinite(dRelative);
    return bUsable ? dRelative : std::numeric_limits<double>::infinity();
}
template double RelativeError(const std::vector<float>&, const std::vector<float>&);
template double RelativeError(const std::vector<double>&, const std::vector<double>&);
