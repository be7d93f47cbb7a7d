// Rates of the kernels.

#include <cstdio>
#include <memory>
#include <numeric>
#include <vector>

#include "Util/TomoVolume.h"
#include "Util/Util_Volume.h"
#include "bench/CompareJob.h"
#include "bench/Scene.h"
#include "bench/cuda/Sections.h"
#include "bench/cuda/Timing.h"
#include "gpulib/App/Job.h"
#include "gpulib/App/JobShape.h"
#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceArray3D.h"
#include "gpulib/Device/GSmooth.h"
#include "gpulib/Device/PitchedPtr3D.h"

namespace
{
int BatchOf(const BenchSize& rSize)
{
    Util_Volume aStack, aVolume;  // one row is enough to tell the sizes
    aStack.SetSize(rSize.iX, 1, rSize.iProjs);
    aVolume.SetSize(rSize.iX, 1, rSize.iZ);
    CTomoVolume aTomoVolume(&aVolume, 1);
    ReconJob aJob;
    aJob.pProjs = &aStack;
    aJob.pTomoVol = &aTomoVolume;
    return CJobShape(aJob, EJobKind::eIterative).GetBatch(rSize.iBandRows);
}

/// Work of one batch by a projector.
struct Work
{
    double dItems;    // samples that are fetched, or updates
    double dNominal;  // with the samples that are left out
    double dCeiling;  // items per second if the texture unit were the only limit
};

/// One line: the projections in sets of iSet.
template <class Operation>
void PrintProjector(const char* pcName, CDeviceScene& rDevice, const BenchSize& rSize, int iSet,
                    const char* pcLaunch, const Work& rWork, Operation aOperation)
{
    const double dSeconds = BestSeconds(pcLaunch, rSize.iRepeats,
                                        [&]
                                        {
                                            bool bDone = true;
                                            for (int n = 0; n < rSize.iProjs && bDone; n += iSet)
                                            {
                                                rDevice.SetRange(n, n + iSet);
                                                bDone = (rDevice.*aOperation)();
                                            }
                                            rDevice.SetRange(0, rSize.iProjs);
                                            return bDone;
                                        });
    std::printf("  %-20s %8d %12.0f %10.1f %10.1f %14.0f %%\n", pcName, iSet, dSeconds * 1e6,
                rWork.dItems / dSeconds / 1e9, rWork.dNominal / dSeconds / 1e9,
                100 * rWork.dItems / dSeconds / rWork.dCeiling);
}

void PrintStream(const char* pcName, double dSeconds, double dBytes, const Ceilings& rCeilings)
{
    std::printf("  %-29s %12.0f %10.0f %25.0f %%\n", pcName, dSeconds * 1e6,
                dBytes / dSeconds / 1e9, 100 * dBytes / dSeconds / rCeilings.dCopy);
}

/// The kernels that only move values: bytes read and written, each once.
void PrintStreams(CDeviceScene& rDevice, const Scene& rScene, int iRepeats,
                  const Ceilings& rCeilings)
{
    const double dPixels = double(rScene.iX) * rScene.iProjs * rScene.iRows;
    const double dVoxels = double(rScene.iX) * rScene.iZ * rScene.iRows;
    struct Entry
    {
        const char *pcName, *pcLaunch;
        bool (CDeviceScene::*pOperation)();
        double dBytes;
    };
    for (const Entry& rEntry :
         {Entry{"difference", "Combine", &CDeviceScene::Diff, 12 * dPixels},
          {"box weights, in place", "Weight", &CDeviceScene::Weight, 8 * dPixels},
          {"sums of |value|", "SumAbs", &CDeviceScene::SumAbs, 4 * dPixels},
          {"linear memory to array", "upload", &CDeviceScene::UploadSlices, 8 * dVoxels},
          {"array to linear memory", "download", &CDeviceScene::DownloadSlices, 8 * dVoxels}})
        PrintStream(
            rEntry.pcName,
            BestSeconds(rEntry.pcLaunch, iRepeats, [&] { return (rDevice.*rEntry.pOperation)(); }),
            rEntry.dBytes, rCeilings);
}

void PrintAlignment(int iSize, int iRepeats, const Ceilings& rCeilings)
{
    CompareScene aScene(1.0f, iSize);
    CompareTotals aTotals;
    const auto Compare = [&] { return RunCompare(aScene, aTotals); };
    const double dBytes = 12.0 * iSize * iSize;
    PrintStream("transform", BestSeconds("Transform", iRepeats, Compare), dBytes, rCeilings);
    PrintStream("compare", BestSeconds("CompareSums", iRepeats, Compare), dBytes, rCeilings);
}

[[nodiscard]] bool PrintSmoothing(const BenchSize& rSize)
{
    constexpr int iKernel = 7;
    const int aiSize[3] = {rSize.iX / 2, rSize.iX / 2, rSize.iZ / 2};
    const std::vector<float> vfKernel(iKernel * iKernel * iKernel, 1.0f);
    CDeviceArray3D aVolume, aKernel;
    CPitchedPtr3D aOut;
    if (!aVolume.Create(aiSize[0], aiSize[1], aiSize[2]) ||
        !aKernel.Create(iKernel, iKernel, iKernel) || !aKernel.HostToDevice(vfKernel.data()) ||
        !aOut.Create(aiSize[0], aiSize[1], aiSize[2]))
        return false;
    GSmooth aSmooth;
    aSmooth.SetVolumeArray(aVolume.GetImage());
    aSmooth.SetGaussianArray(aKernel.GetImage());
    const double dSeconds =
        BestSeconds("Smooth", rSize.iRepeats, [&] { return aSmooth.DoIt(aOut.GetImage()); });
    const double dTaps = double(aiSize[0]) * aiSize[1] * aiSize[2] * double(vfKernel.size());
    std::printf("  smooth %d x %d x %d, kernel 7 x 7 x 7: %.0f us, %.1f G multiply-adds/s\n",
                aiSize[0], aiSize[1], aiSize[2], dSeconds * 1e6, dTaps / dSeconds / 1e9);
    return true;
}
}  // namespace

bool PrintKernels(const BenchSize& rSize, const Ceilings& rCeilings, bool bExact)
{
    const Scene aScene(BatchOf(rSize), rSize.iX, rSize.iZ, rSize.iProjs);
    auto pDevice = std::make_unique<CDeviceScene>();
    if (!pDevice->Create(aScene) || !pDevice->Forward() || !pDevice->Diff()) return false;
    // A sample takes four single texels or one filtered read, an update two or one.
    const Work aForward = {aScene.CountFetched() * aScene.iRows,
                           aScene.CountNominal() * aScene.iRows,
                           bExact ? rCeilings.dPointFetches / 4 : rCeilings.dFilterFetches};
    const double dUpdates = aScene.CountUpdates() * aScene.iRows;
    const Work aBack = {dUpdates, dUpdates,
                        bExact ? rCeilings.dPointFetches / 2 : rCeilings.dFilterFetches};
    std::printf("\n%s: slice %d x %d, %d projections of -60 to 60 degrees, batch of %d rows\n",
                bExact ? "cuda-exact" : "cuda", rSize.iX, rSize.iZ, rSize.iProjs, aScene.iRows);
    std::printf("  %-20s %8s %12s %10s %10s %16s\n", "projectors", "set of", "us/batch", "G/s",
                "nominal", "of the ceiling");
    for (const int iSet : {rSize.iProjs, 1})
        PrintProjector("forward, samples", *pDevice, rSize, iSet, "ForwardProject", aForward,
                       &CDeviceScene::Forward);
    for (const int iSet : {rSize.iProjs, 1})
        PrintProjector("back, updates", *pDevice, rSize, iSet, "BackProject", aBack,
                       &CDeviceScene::Back);
    if (bExact) return true;  // the others do not filter
    std::printf("  %-29s %12s %10s %27s\n", "other kernels", "us/batch", "GB/s",
                "of the copy bandwidth");
    PrintStreams(*pDevice, aScene, rSize.iRepeats, rCeilings);
    pDevice.reset();
    PrintAlignment(rSize.iX, rSize.iRepeats, rCeilings);
    return PrintSmoothing(rSize);
}
