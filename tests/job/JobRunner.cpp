#include "tests/job/JobRunner.h"

#include <memory>
#include <mutex>
#include <thread>

#include "Util/TomoVolume.h"
#include "gpulib/App/Iteration/TomoEm.h"
#include "gpulib/App/Iteration/TomoSart.h"
#include "gpulib/App/Job.h"
#include "gpulib/App/Project/BackProj.h"
#include "gpulib/App/Project/ForProj.h"
#include "gpulib/Device/DeviceError.h"
#include "gpulib/Device/Host/HostBackend.h"
#include "tests/backends/Backends.h"

namespace
{
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
    const int iProjs = int(rJob.vfAngles.size());
    aData.vfVolume = RandomImages(rJob.iVolX, rJob.iY, rJob.iVolZ, 0.1f, 2, uiSeed).vf;
    if (rJob.bZeroStart) aData.vfVolume.assign(aData.vfVolume.size(), 0);
    const float fScale = float(rJob.iVolZ);  // about a ray sum
    aData.vfProjs =
        RandomImages(rJob.iProjX, rJob.iY, iProjs, 0.1f * fScale, 2 * fScale, uiSeed + 1).vf;
    for (int i = 0; i < iProjs * rJob.iY; ++i)
    {
        const int n = i / rJob.iY, y = i % rJob.iY;
        // Rows 1, 4, 7... of every third projection miss entirely; some say more than there is.
        const bool bMissing = rJob.bInvalid && n % 3 == 0 && y % 3 == 1;
        const bool bEndless = rJob.bInvalid && (n + y) % 5 == 4;
        const unsigned uiX = unsigned(rJob.iProjX), uiCut = unsigned(2 * n + y) % 5;
        const unsigned uiFirst = bMissing ? uiX + 1 : rJob.bInvalid ? unsigned(n + y) % 4 : 0;
        const unsigned uiEnd = bMissing ? 0 : bEndless ? ~0u : uiX - (rJob.bInvalid ? uiCut : 0);
        for (unsigned x = 0; x < uiX; ++x)
            if (x < uiFirst || x >= uiEnd) aData.vfProjs[std::size_t(i) * uiX + x] = -1e30f;
        aData.vuiRangeX.insert(aData.vuiRangeX.end(), {uiFirst, uiEnd});
    }
    return aData;
}

TestData RunJob(const TestJob& rJob, const TestData& rStart, const Machine& rMachine)
{
    SetBackend(nullptr);
    const std::vector<int> viCores(static_cast<std::size_t>(rMachine.iWorkers), rMachine.iCores);
    SetBackend(
        rMachine.iCores == 0
            ? MakeTestBackend(rMachine.strBackend, rMachine.iWorkers, rMachine.iMaxRows)
            : std::make_unique<CHostBackend>(Baseline::g_aKernels, viCores, rMachine.iMaxRows));
    const int iWorkers = std::min(rMachine.iWorkers, GetBackend()->GetDeviceCount());
    TestData aResult = rStart;
    Util_Volume aStack, aVolume, aKernel;
    Load(aStack, rJob.iProjX, rJob.iY, rStart.vfProjs);
    Load(aVolume, rJob.iVolX, rJob.iY, rStart.vfVolume);
    if (!rJob.vfKernel.empty()) Load(aKernel, rJob.aiKernel[0], rJob.aiKernel[1], rJob.vfKernel);
    CTomoVolume aTomoVol(&aVolume, iWorkers);
    const std::vector<unsigned> vuiList = GetList(rJob);
    ReconJob aJob;
    aJob.pProjs = &aStack;
    aJob.pTomoVol = &aTomoVol;
    aJob.bZero = rJob.bZeroStart && iWorkers > 1;  // one worker finds out by itself
    aJob.fAngles = rJob.vfAngles;
    aJob.uiRangeX = rStart.vuiRangeX;
    aJob.uiProjIndex = vuiList;
    aJob.uiIterations = unsigned(rJob.iIterations);
    aJob.uiNumSets = rJob.uiSets;
    aJob.uiSetSize = rJob.vuiSetSize;
    aJob.fRelax = rJob.vfRelax;
    if (!rJob.vfKernel.empty()) aJob.pKernel = &aKernel;
    aJob.uiSmoothInt = rJob.uiInterval;
    if (rJob.aBox) aJob.aBox = {rJob.aBox->afCentre, rJob.aBox->afHalf};

    std::mutex aMutex;
    const auto Work = [&](int i)
    {
        const int iRows = rJob.iY / iWorkers, iStart = i * iRows;
        const int iSize = i + 1 < iWorkers ? iRows : rJob.iY - iStart;
        const std::unique_ptr<CReconBase> pJob = MakeLibraryJob(rJob, aJob);
        const JobShare aShare = {iStart, iSize, i, iWorkers, i == rJob.iFailingWorker ? 99 : i};
        const bool bDone = GetBackend()->SelectDevice(i) && pJob->DoIt(aShare);
        const std::lock_guard aLock(aMutex);
        if (!bDone && aResult.strError.empty()) aResult.strError = TakeDeviceError();
        if (!bDone) aTomoVol.Abort();
        const auto pRecon = dynamic_cast<CTomoRecon*>(pJob.get());
        const std::vector<double> vdRfactor = pRecon ? pRecon->GetRfactor() : Values();
        aResult.vdRfactor.resize(std::max(aResult.vdRfactor.size(), vdRfactor.size()));
        for (std::size_t k = 0; k < vdRfactor.size(); ++k) aResult.vdRfactor[k] += vdRfactor[k];
    };
    std::vector<std::thread> vThreads;
    for (int i = 0; i < iWorkers; ++i) vThreads.emplace_back(Work, i);
    for (std::thread& rThread : vThreads) rThread.join();
    aResult.vfProjs = Unload(aStack);
    aResult.vfVolume = Unload(aVolume);
    return aResult;
}
