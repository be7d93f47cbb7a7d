#include "tests/job/JobRunner.h"

#include <algorithm>
#include <memory>
#include <random>
#include <thread>

#include "Util/TomoVolume.h"
#include "Util/Util_Volume.h"
#include "gpulib/App/Iteration/TomoEm.h"
#include "gpulib/App/Iteration/TomoSart.h"
#include "gpulib/App/Job.h"
#include "gpulib/App/Project/BackProj.h"
#include "gpulib/App/Project/ForProj.h"
#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"
#include "gpulib/Device/Host/HostBackend.h"
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

std::unique_ptr<CReconBase> MakeLibraryJob(const TestJob& rTest, const ReconJob& rJob)
{
    if (rTest.bReproject) return std::make_unique<CForProj>(rJob);
    if (rTest.eMethod == EMethod::eBackProj) return std::make_unique<CBackProj>(rJob);
    if (rTest.eMethod == EMethod::eSart) return std::make_unique<CTomoSart>(rJob);
    return std::make_unique<CTomoEm>(rJob);
}
}  // namespace

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

TestData RunJob(const TestJob& rJob, const TestData& rStart, const Machine& rMachine)
{
    SetBackend(nullptr);
    SetBackend(rMachine.iCores == 0
                   ? MakeTestBackend(rMachine.strBackend, rMachine.iWorkers, rMachine.iMaxRows)
                   : std::make_unique<CHostBackend>(Baseline::g_aKernels, rMachine.iWorkers,
                                                    rMachine.iCores, rMachine.iMaxRows));
    const int iWorkers = std::min(rMachine.iWorkers, GetBackend()->GetDeviceCount());
    TestData aResult = rStart;
    Util_Volume aStack, aVolume, aKernel;
    Load(aStack, rJob.iProjX, rJob.iY, CountProjs(rJob), rStart.vfProjs);
    Load(aVolume, rJob.iVolX, rJob.iY, rJob.iVolZ, rStart.vfVolume);
    if (!rJob.vfKernel.empty())
        Load(aKernel, rJob.aiKernel[0], rJob.aiKernel[1], rJob.aiKernel[2], rJob.vfKernel);
    CTomoVolume aTomoVol(&aVolume, iWorkers);
    const std::vector<unsigned> vuiList = GetList(rJob);
    ReconJob aJob = {&aStack,
                     &aTomoVol,
                     rJob.vfAngles,
                     rStart.vuiRangeX,
                     vuiList,
                     {},
                     unsigned(rJob.iIterations),
                     rJob.uiSets,
                     rJob.vuiSetSize,
                     rJob.vfRelax,
                     rJob.vfKernel.empty() ? nullptr : &aKernel,
                     rJob.uiInterval};
    if (rJob.aBox) aJob.aBox = {rJob.aBox->afCentre, rJob.aBox->afHalf};

    std::vector<std::vector<double>> vvRfactor(iWorkers);
    std::vector<std::string> vstrErrors(iWorkers);
    const auto Work = [&](int i)
    {
        const int iRows = rJob.iY / iWorkers, iStart = i * iRows;
        const std::unique_ptr<CReconBase> pJob = MakeLibraryJob(rJob, aJob);
        const auto pRecon = dynamic_cast<CTomoRecon*>(pJob.get());
        const int iSize = i + 1 < iWorkers ? iRows : rJob.iY - iStart;
        const JobShare aShare = {iStart, iSize, i, iWorkers, i == rJob.iFailingWorker ? 99 : i};
        if (!GetBackend()->SelectDevice(i) || !pJob->DoIt(aShare))
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
