#include "tests/oracle/JobOracle.h"

namespace
{
/// X-Z slice iY of a volume, or row iY of all projections.
Values SliceOf(const std::vector<float>& rVolume, int iX, int iYs, int iY)
{
    Values vdSlice;
    for (std::size_t i = std::size_t(iY) * iX; i < rVolume.size(); i += std::size_t(iX) * iYs)
        vdSlice.insert(vdSlice.end(), &rVolume[i], &rVolume[i] + iX);
    return vdSlice;
}

void StoreSlice(const Values& rSlice, std::vector<float>& rVolume, int iX, int iYs, int iY)
{
    for (std::size_t k = 0; k < rSlice.size(); ++k)
        rVolume[(k / iX * iYs + iY) * iX + k % iX] = float(rSlice[k]);
}

/// The sets as list positions [first, end).
std::vector<std::pair<int, int>> GetSets(const TestJob& rJob)
{
    const int iProjs = int(GetList(rJob).size()), iSets = int(rJob.uiSets);
    std::vector<std::pair<int, int>> vSets;
    for (int s = 0, iFirst = 0; s < iSets; ++s)
    {
        const int iSize = rJob.vuiSetSize.empty()
                              ? iProjs / iSets + (s < iProjs % iSets)
                              : int(std::min(rJob.vuiSetSize[s], unsigned(iProjs)));
        vSets.emplace_back(std::min(iFirst, iProjs), std::min(iFirst + iSize, iProjs));
        iFirst += iSize;
    }
    return vSets;
}

Values Times(Values vdA, const Values& rB)
{
    for (std::size_t k = 0; k < vdA.size(); ++k) vdA[k] *= rB[k];
    return vdA;
}

/// Projections of the list, of one row.
void Reproject(const TestJob& rJob, const COracle& rOracle, const Values& rSlice, Values& rRows)
{
    for (const unsigned n : GetList(rJob))
    {
        const Values vdSums = rOracle.Project(rSlice, n);
        for (std::size_t x = 0, k = n * vdSums.size(); x < vdSums.size(); ++x, ++k)
            rRows[k] = vdSums[x] / (rJob.aBox ? rOracle.GetPreWeights()[k] : 1.0);
    }
}

/// Iterations [iFirst, iEnd) on one row; adds to the pairs of sums of all rows.
void Iterate(const TestJob& rJob, const COracle& rOracle, const Values& rMeasured,
             const OracleRanges& rRanges, std::pair<int, int> aIterations, Values& rSlice,
             Values& rRfactor)
{
    const auto vSets = GetSets(rJob);
    const std::pair<int, int> aAll = {0, int(GetList(rJob).size())};
    const Values vdRaw = rOracle.SumAbs(rMeasured);
    for (std::size_t k = 0; aIterations.first == 0 && k < rRfactor.size(); k += 2)
        rRfactor[k] += vdRaw[k / 2 % vdRaw.size()];
    for (int i = aIterations.first; i < aIterations.second; ++i)
    {
        const bool bEm = rJob.eMethod == EMethod::eEm && i > 0;
        for (std::size_t s = 0; s < vSets.size(); ++s)
        {
            Values vdRows = rOracle.Compare(rMeasured, rSlice, vSets[s], bEm);
            if (!bEm) vdRows = Times(std::move(vdRows), rOracle.GetPrjWeights());
            const double dRelax = rJob.vfRelax.empty() ? 1 : rJob.vfRelax[i * vSets.size() + s];
            rOracle.Update(vdRows, rRanges, vSets[s], dRelax, bEm, rSlice);
        }
        const Values vdDif = rOracle.SumAbs(rOracle.Compare(rMeasured, rSlice, aAll, false));
        for (std::size_t p = 0; p < vdDif.size(); ++p)
            rRfactor[2 * (vdDif.size() * i + p) + 1] += vdDif[p];
    }
}
}  // namespace

TestData RunOracle(const TestJob& rJob, const TestData& rStart)
{
    const COracle aOracle(rJob);
    TestData aResult = rStart;
    const bool bIterates = !rJob.bReproject && rJob.eMethod != EMethod::eBackProj;
    const int iIterations = bIterates ? rJob.iIterations : 1, iProjs = int(GetList(rJob).size());
    if (bIterates) aResult.vdRfactor.resize(2 * std::size_t(iProjs) * iIterations);
    const int iInterval =
        rJob.uiInterval > 0 ? int(std::min(rJob.uiInterval, unsigned(iIterations))) : iIterations;
    for (int b = 0; b < iIterations / iInterval; ++b)
    {
        for (int y = 0; y < rJob.iY; ++y)
        {
            OracleRanges aRanges;
            for (std::size_t n = y; 2 * n < rStart.vuiRangeX.size(); n += rJob.iY)
                aRanges.emplace_back(rStart.vuiRangeX[2 * n], rStart.vuiRangeX[2 * n + 1]);
            Values vdSlice = SliceOf(aResult.vfVolume, rJob.iVolX, rJob.iY, y);
            Values vdRows = SliceOf(rStart.vfProjs, rJob.iProjX, rJob.iY, y);
            if (rJob.bReproject)
            {
                Reproject(rJob, aOracle, vdSlice, vdRows);
                StoreSlice(vdRows, aResult.vfProjs, rJob.iProjX, rJob.iY, y);
                continue;
            }
            if (bIterates || rJob.aBox) vdRows = Times(vdRows, aOracle.GetPreWeights());
            if (bIterates)
                Iterate(rJob, aOracle, vdRows, aRanges, {b * iInterval, (b + 1) * iInterval},
                        vdSlice, aResult.vdRfactor);
            else
            {
                if (rJob.aBox) vdRows = Times(vdRows, aOracle.GetPrjWeights());
                aOracle.Update(vdRows, aRanges, {0, iProjs}, 1, false, vdSlice);
            }
            StoreSlice(vdSlice, aResult.vfVolume, rJob.iVolX, rJob.iY, y);
        }
        if (!bIterates || rJob.vfKernel.empty() || rJob.uiInterval == 0) continue;
        Images aVolume(rJob.iVolX, rJob.iY, rJob.iVolZ);
        aVolume.vf = aResult.vfVolume;
        Images aKernel(rJob.aiKernel[0], rJob.aiKernel[1], rJob.aiKernel[2]);
        aKernel.vf = rJob.vfKernel;
        std::ranges::copy(SmoothVolume(aVolume, aKernel), aResult.vfVolume.begin());
    }
    return aResult;
}
