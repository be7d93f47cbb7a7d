#include "bench/SartJob.h"

#include <chrono>
#include <numeric>
#include <thread>
#include <utility>
#include <vector>

#include "Util/TomoVolume.h"
#include "Util/Util_Volume.h"
#include "bench/Scene.h"
#include "bench/ThreadTime.h"
#include "gpulib/App/Iteration/TomoSart.h"
#include "gpulib/App/Job.h"
#include "gpulib/Device/Backend.h"

namespace
{
thread_local double t_dKernels = 0;

/// Another backend, with a watch on its kernels.
class CTimedBackend final : public CBackend
{
public:
    explicit CTimedBackend(std::unique_ptr<CBackend> pInner) : m_pInner(std::move(pInner)) {}
    std::unique_ptr<CBackend> Release() { return std::move(m_pInner); }

    const char* GetName() const override { return m_pInner->GetName(); }
    const char* GetDetail() const override { return m_pInner->GetDetail(); }
    int GetDeviceCount() const override { return m_pInner->GetDeviceCount(); }
    std::size_t GetDeviceMemory(int iDevice) const override
    {
        return m_pInner->GetDeviceMemory(iDevice);
    }
    bool SelectDevice(int iDevice) override { return m_pInner->SelectDevice(iDevice); }
    int GetBatchRows(int iRows, std::size_t tBytesPerRow) const override
    {
        return m_pInner->GetBatchRows(iRows, tBytesPerRow);
    }
    int GetPieceRows(int iWidth, int iRows) const override
    {
        return m_pInner->GetPieceRows(iWidth, iRows);
    }
    bool UsesHostMemory() const override { return m_pInner->UsesHostMemory(); }
    bool FinishDownload() override { return m_pInner->FinishDownload(); }

private:
    bool mCreate(DeviceImage& rImage, const char* pcKind) override
    {
        return m_pInner->Create(rImage, pcKind);
    }
    bool mCreateLent(DeviceImage& rImage, const void* pvSource) override
    {
        return m_pInner->CreateLent(rImage, pvSource);
    }
    bool mCreateLentRows(DeviceImage& rImage, const HostRows<float>& rRows) override
    {
        return m_pInner->CreateLentRows(rImage, rRows);
    }
    void mFree(DeviceImage& rImage) override { m_pInner->Free(rImage); }
    bool mClear(const DeviceImage& rImage) override { return m_pInner->Clear(rImage); }
    bool mUpload(const DeviceImage& rImage, const HostRows<const float>& rSource, int iX0, int iY0,
                 int iWidth, int iHeight) override
    {
        return m_pInner->Upload(rImage, rSource, iX0, iY0, iWidth, iHeight);
    }
    void mPrefetch(const HostRows<const float>& rSource, int iWidth, int iHeight) override
    {
        m_pInner->Prefetch(rSource, iWidth, iHeight);
    }
    bool mStartDownload(const DeviceImage& rImage, const HostRows<float>& rDest, int iX0, int iY0,
                        int iWidth, int iHeight) override
    {
        return m_pInner->StartDownload(rImage, rDest, iX0, iY0, iWidth, iHeight);
    }
    bool mMoveIn(const DeviceImage& rImage, const HostRows<float>& rSource, int iX0, int iY0,
                 int iWidth, int iHeight) override
    {
        return m_pInner->MoveIn(rImage, rSource, iX0, iY0, iWidth, iHeight);
    }
    bool mStartMoveOut(const DeviceImage& rImage, const HostRows<float>& rDest, int iX0, int iY0,
                       int iWidth, int iHeight) override
    {
        return m_pInner->StartMoveOut(rImage, rDest, iX0, iY0, iWidth, iHeight);
    }
    bool mCopy(const DeviceImage& rDest, const DeviceImage& rSource) override
    {
        return m_pInner->Copy(rDest, rSource);
    }
    bool mUploadTable(const DeviceImage& rImage, const void* pvSource) override
    {
        return m_pInner->UploadTable(rImage, pvSource);
    }
    bool mDownloadTable(const DeviceImage& rImage, void* pvDest) override
    {
        return m_pInner->DownloadTable(rImage, pvDest);
    }

    bool mForwardProject(const ForwardParams& rParams) override
    {
        return mTime([&] { return m_pInner->ForwardProject(rParams); });
    }
    bool mCombine(const CombineParams& rParams) override
    {
        return mTime([&] { return m_pInner->Combine(rParams); });
    }
    bool mWeight(const WeightParams& rParams) override
    {
        return mTime([&] { return m_pInner->Weight(rParams); });
    }
    bool mBackProject(const BackParams& rParams) override
    {
        return mTime([&] { return m_pInner->BackProject(rParams); });
    }
    bool mBackForward(const BackParams& rBack, const ForwardParams& rForward) override
    {
        return mTime([&] { return m_pInner->BackForward(rBack, rForward); });
    }
    bool mSumAbs(const SumAbsParams& rParams) override
    {
        return mTime([&] { return m_pInner->SumAbs(rParams); });
    }
    bool mTransform(const TransformParams& rParams) override
    {
        return mTime([&] { return m_pInner->Transform(rParams); });
    }
    bool mCompareSums(const CompareParams& rParams) override
    {
        return mTime([&] { return m_pInner->CompareSums(rParams); });
    }
    bool mSmooth(const SmoothParams& rParams) override
    {
        return mTime([&] { return m_pInner->Smooth(rParams); });
    }

    template <class F>
    static bool mTime(F fKernel)
    {
        const double dStart = ThreadSeconds();
        const bool bDone = fKernel();
        t_dKernels += ThreadSeconds() - dStart;
        return bDone;
    }
    std::unique_ptr<CBackend> m_pInner;
};
}  // namespace

SartTimes RunSartJob(int iWorkers, int iRows, int iSets, int iIterations)
{
    const Scene aScene(1);  // sizes; all rows hold the same values
    const int iRowsPerWorker = iRows / iWorkers, iY = iWorkers * iRowsPerWorker;
    Util_Volume aStack, aVolume;
    aStack.SetSize(aScene.iX, iY, aScene.iProjs);
    aVolume.SetSize(aScene.iX, iY, aScene.iZ);
    std::vector<float> vfAngles;
    std::vector<unsigned int> vuiIndex(aScene.iProjs), vuiRange;
    std::iota(vuiIndex.begin(), vuiIndex.end(), 0u);
    for (int n = 0; n < aScene.iProjs; ++n)
    {
        vfAngles.push_back(-60 + 120.0f * n / (aScene.iProjs - 1));
        for (int y = 0; y < iY; ++y)
        {
            aStack.SetLineX(aScene.ProjLine(n, 0), y, n);
            vuiRange.insert(vuiRange.end(), {0u, unsigned(aScene.iX)});
        }
    }
    CTomoVolume aTomoVolume(&aVolume, iWorkers);
    ReconJob aJob;
    aJob.pProjs = &aStack;
    aJob.pTomoVol = &aTomoVolume;
    aJob.fAngles = vfAngles;
    aJob.uiRangeX = vuiRange;
    aJob.uiIterations = unsigned(iIterations);
    aJob.uiNumSets = unsigned(iSets > 0 ? iSets : aScene.iProjs);
    aJob.uiProjIndex = vuiIndex;

    SetBackend(std::make_unique<CTimedBackend>(SetBackend(nullptr)));
    std::vector<SartTimes> vTimes(iWorkers);
    std::vector<std::thread> vThreads;
    const auto aStart = std::chrono::steady_clock::now();
    for (int w = 0; w < iWorkers; ++w)
        vThreads.emplace_back(
            [&, w]
            {
                CTomoSart aSart(aJob);
                vTimes[w].bDone = GetBackend()->SelectDevice(w) &&
                                  aSart.DoIt({w * iRowsPerWorker, iRowsPerWorker, w, iWorkers, w});
                vTimes[w].dWorker = ThreadSeconds();
                vTimes[w].dKernels = t_dKernels;
            });
    for (std::thread& rThread : vThreads) rThread.join();
    SartTimes aTimes;
    aTimes.dJob = std::chrono::duration<double>(std::chrono::steady_clock::now() - aStart).count();
    aTimes.bDone = true;
    for (const SartTimes& rTimes : vTimes)
    {
        aTimes.bDone = aTimes.bDone && rTimes.bDone;
        aTimes.dWorker += rTimes.dWorker;
        aTimes.dKernels += rTimes.dKernels;
    }
    std::unique_ptr<CBackend> pTimed = SetBackend(nullptr);
    SetBackend(static_cast<CTimedBackend&>(*pTimed).Release());
    return aTimes;
}
