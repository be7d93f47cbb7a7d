#include "tests/job/JobRunner.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <numeric>
#include <random>
#include <thread>

#include "Util/Util_Volume.h"
#include "gpulib/App/BackProj.h"
#include "gpulib/App/ForProj.h"
#include "gpulib/App/TomoEm.h"
#include "gpulib/App/TomoSart.h"
#include "gpulib/App/TomoSmooth.h"
#include "gpulib/App/TomoVolume.h"
#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"
#include "tests/backends/Backends.h"

namespace
{
int CountProjs(const TestJob& rJob)
{
    return int(rJob.vfAngles.size());
}

void Load(Util_Volume& rVolume, int iX, int iY, int iZ, const std::vector<float>& rData)
{
    rVolume.SetSize(iX, iY, iZ);
    std::ranges::copy(rData, rVolume.GetData());
}

std::vector<float> Unload(const Util_Volume& rVolume)
{
    return {rVolume.GetData(), rVolume.GetData() + rVolume.GetVoxels()};
}

std::unique_ptr<CReconBase> MakeLibraryJob(const TestJob& rJob)
{
    if (rJob.bReproject) return std::make_unique<CForProj>();
    if (rJob.eMethod == EMethod::eBackProj) return std::make_unique<CBackProj>();
    std::unique_ptr<CTomoRecon> pRecon;
    if (rJob.eMethod == EMethod::eSart)
        pRecon = std::make_unique<CTomoSart>();
    else
        pRecon = std::make_unique<CTomoEm>();
    pRecon->SetIterations(unsigned(rJob.iIterations));
    pRecon->SetNumSets(rJob.uiSets, rJob.vuiSetSize);
    pRecon->SetRelax(rJob.vfRelax);
    return pRecon;
}

OracleRanges RangesOfRow(const TestJob& rJob, const TestData& rData, int iY)
{
    OracleRanges aRanges;
    for (int n = 0; n < CountProjs(rJob); ++n)
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

TestData MakeData(const TestJob& rJob, unsigned uiSeed)
{
    TestData aData;
    std::mt19937 aRandom(uiSeed);
    std::uniform_real_distribution<float> aValue(0.1f, 2.0f);
    aData.vfVolume.resize(std::size_t(rJob.iVolX) * rJob.iY * rJob.iVolZ);
    for (float& rfValue : aData.vfVolume) rfValue = rJob.bZeroStart ? 0.0f : aValue(aRandom);
    const float fScale = float(rJob.iVolZ);  // about a ray sum
    for (int n = 0; n < CountProjs(rJob); ++n)
        for (int y = 0; y < rJob.iY; ++y)
        {
            // Rows 1, 4, 7... of every third projection miss entirely.
            const bool bRowMissing = rJob.bInvalid && n % 3 == 0 && y % 3 == 1;
            const int iFirst = rJob.bInvalid ? (n + y) % 4 : 0;
            const int iEnd = rJob.iProjX - (rJob.bInvalid ? (2 * n + y) % 5 : 0);
            for (int x = 0; x < rJob.iProjX; ++x)
            {
                const float fValue = fScale * aValue(aRandom);
                const bool bValid = !bRowMissing && x >= iFirst && x < iEnd;
                aData.vfProjs.push_back(bValid ? fValue : -1e30f);
            }
            aData.vuiRangeX.push_back(unsigned(bRowMissing ? rJob.iProjX + 1 : iFirst));
            aData.vuiRangeX.push_back(unsigned(bRowMissing ? 0 : iEnd));
        }
    return aData;
}

TestData RunJob(const TestJob& rJob, const TestData& rStart, const std::string& strBackend,
                int iWorkers, int iMaxRows)
{
    SetBackend(nullptr);
    SetBackend(MakeTestBackend(strBackend, iWorkers, iMaxRows));
    TestData aResult = rStart;
    Util_Volume aStack, aVolume, aKernel;
    Load(aStack, rJob.iProjX, rJob.iY, CountProjs(rJob), rStart.vfProjs);
    Load(aVolume, rJob.iVolX, rJob.iY, rJob.iVolZ, rStart.vfVolume);
    if (!rJob.vfKernel.empty())
        Load(aKernel, rJob.aiKernel[0], rJob.aiKernel[1], rJob.aiKernel[2], rJob.vfKernel);
    CTomoVolume aTomoVol(&aVolume, iWorkers);
    const std::vector<unsigned> vuiList = GetList(rJob);

    std::vector<std::vector<double>> vvRfactor(iWorkers);
    std::vector<std::string> vstrErrors(iWorkers);
    const auto Work = [&](int i)
    {
        const int iRows = rJob.iY / iWorkers, iStart = i * iRows;
        const std::unique_ptr<CReconBase> pJob = MakeLibraryJob(rJob);
        CTomoSmooth aSmooth;
        aSmooth.SetVolume(&aVolume);
        aSmooth.SetKernel(rJob.vfKernel.empty() ? nullptr : &aKernel);
        aSmooth.SetDeviceInfo(iWorkers, i == rJob.iFailingWorker ? 99 : i, i);
        const auto pRecon = dynamic_cast<CTomoRecon*>(pJob.get());
        if (pRecon) pRecon->SetSmooth(&aSmooth, rJob.uiInterval);
        pJob->SetProjs(&aStack, rJob.vfAngles);
        pJob->SetVolume(&aTomoVol);
        pJob->SetRangeX(rStart.vuiRangeX);
        pJob->SetProjIndices(vuiList);
        if (!rJob.vBox.empty())
            pJob->SetPreweightBox(rJob.vBox[0].afCentre.data(), rJob.vBox[0].afHalf.data());
        if (!GetBackend()->SelectDevice(i) ||
            !pJob->DoIt(iStart, i + 1 < iWorkers ? iRows : rJob.iY - iStart))
        {
            vstrErrors[i] = TakeDeviceError();
            aTomoVol.Abort();
        }
        if (pRecon) vvRfactor[i] = pRecon->GetRfactor();
    };
    std::vector<std::thread> vThreads;
    for (int i = 0; i < iWorkers; ++i) vThreads.emplace_back(Work, i);
    for (std::thread& rThread : vThreads) rThread.join();

    aResult.vfProjs = Unload(aStack);
    aResult.vfVolume = Unload(aVolume);
    for (const std::vector<double>& rRfactor : vvRfactor)
    {
        aResult.vdRfactor.resize(std::max(aResult.vdRfactor.size(), rRfactor.size()));
        for (std::size_t k = 0; k < rRfactor.size(); ++k) aResult.vdRfactor[k] += rRfactor[k];
    }
    for (const std::string& rError : vstrErrors)
        if (aResult.strError.empty()) aResult.strError = rError;
    return aResult;
}

TestData RunOracle(const TestJob& rJob, const TestData& rStart)
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
