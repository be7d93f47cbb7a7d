// Rates of the kernels.

#include <algorithm>
#include <cstdio>
#include <memory>
#include <utility>
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

/// What one sample or update of one row needs at least, whatever the hardware.
struct Need
{
    double dL1, dL2, dMemory;       // bytes from there
    double dFloats, dInstructions;  // as scripts/kernel-table counts them in code for 9.0
};

/// A sample reads four texels. A block of 32 rays takes each texel from the second-level cache
/// once, the kernel each from memory once for every set.
Need NeedOfForward(const Scene& rScene, double dSamples, int iSet, const Ceilings& rCeilings)
{
    const double dSlices = 4.0 * rScene.iX * rScene.iZ * rScene.iRows;
    const bool bStays = dSlices < double(rCeilings.tL2Bytes);  // from set to set
    return {16, 4, bStays ? 0 : dSlices * rScene.iProjs / iSet / dSamples, 8.2, 11.5};
}

/// An update reads two pixels; the 32 x 4 voxels of a block lie above 36 pixels at most. A voxel is
/// read and written once for every set.
Need NeedOfBack(const Scene& rScene, int iSet, const Ceilings& rCeilings)
{
    const double dSlices = 4.0 * rScene.iX * rScene.iZ * rScene.iRows, dVoxel = 8.0 / iSet;
    const bool bStays = dSlices < double(rCeilings.tL2Bytes);
    return {8 + dVoxel, 4.0 * 36 / 128 + dVoxel, bStays ? 0 : dVoxel, 5.6, 8.6};
}

/// One line: what was reached, in parts of each ceiling, and which binds.
void PrintProjector(const char* pcName, int iSet, double dSeconds, double dItems, const Need& rNeed,
                    const Ceilings& rCeilings)
{
    const std::pair<const char*, double> aParts[] = {
        {"L1", rNeed.dL1 / rCeilings.dL1},
        {"L2", rNeed.dL2 / rCeilings.dL2},
        {"memory", rNeed.dMemory / rCeilings.dMemory},
        {"FP32", rNeed.dFloats / rCeilings.dFloat},
        {"issue", rNeed.dInstructions / rCeilings.dIssue}};
    const auto* const pBinding =
        std::ranges::max_element(aParts, {}, [](const auto& rPart) { return rPart.second; });
    std::printf("  %-20s %4d %10.0f %9.1f", pcName, iSet, dSeconds * 1e6, dItems / dSeconds / 1e9);
    for (const auto& [pcPart, dPart] : aParts)
        std::printf(" %5.0f %%", 100 * dPart * dItems / dSeconds);
    std::printf("   %s\n", pBinding->first);
}

void PrintTitle(const char* pcTitle)
{
    std::printf("  %-20s %4s %10s %9s %7s %7s %7s %7s %7s   %s\n", pcTitle, "sets", "us/batch",
                "G/s", "L1", "L2", "memory", "FP32", "issue", "binding");
}

/// The projections in sets of iSet.
template <class Operation>
double TimeSets(CDeviceScene& rDevice, int iProjs, int iSet, int iRepeats, const char* pcLaunch,
                Operation aOperation)
{
    return BestSeconds(pcLaunch, iRepeats,
                       [&]
                       {
                           bool bDone = true;
                           for (int n = 0; n < iProjs && bDone; n += iSet)
                           {
                               rDevice.SetRange(n, n + iSet);
                               bDone = (rDevice.*aOperation)();
                           }
                           rDevice.SetRange(0, iProjs);
                           return bDone;
                       });
}

/// Both projectors with all projections in one set and with sets of one.
void PrintProjectors(CDeviceScene& rDevice, const Scene& rScene, int iRepeats,
                     const Ceilings& rCeilings)
{
    const double dSamples = rScene.CountFetched() * rScene.iRows;
    const double dUpdates = rScene.CountUpdates() * rScene.iRows;
    for (const int iSet : {rScene.iProjs, 1})
    {
        const auto Time = [&](const char* pcLaunch, auto aOperation)
        { return TimeSets(rDevice, rScene.iProjs, iSet, iRepeats, pcLaunch, aOperation); };
        PrintProjector("forward, samples", iSet, Time("ForwardProject", &CDeviceScene::Forward),
                       dSamples, NeedOfForward(rScene, dSamples, iSet, rCeilings), rCeilings);
        PrintProjector("  with difference", iSet,
                       Time("ForwardProject", &CDeviceScene::ForwardDiff), dSamples,
                       NeedOfForward(rScene, dSamples, iSet, rCeilings), rCeilings);
        PrintProjector("back, updates", iSet, Time("BackProject", &CDeviceScene::Back), dUpdates,
                       NeedOfBack(rScene, iSet, rCeilings), rCeilings);
    }
}

void PrintStream(const char* pcName, double dSeconds, double dBytes, const Ceilings& rCeilings)
{
    std::printf("  %-25s %10.0f %9.0f %22.0f %%\n", pcName, dSeconds * 1e6, dBytes / dSeconds / 1e9,
                100 * dBytes / dSeconds / rCeilings.dMemory);
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
         {Entry{"difference, in place", "Combine", &CDeviceScene::Diff, 12 * dPixels},
          {"box weights, in place", "Weight", &CDeviceScene::Weight, 8 * dPixels},
          {"sums of |value|", "SumAbs", &CDeviceScene::SumAbs, 4 * dPixels},
          {"into groups of rows", "upload", &CDeviceScene::UploadSlices, 8 * dVoxels},
          {"out of groups of rows", "download", &CDeviceScene::DownloadSlices, 8 * dVoxels}})
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

bool PrintKernels(const BenchSize& rSize, const Ceilings& rCeilings)
{
    const Scene aScene(BatchOf(rSize), rSize.iX, rSize.iZ, rSize.iProjs);
    auto pDevice = std::make_unique<CDeviceScene>();
    if (!pDevice->Create(aScene) || !pDevice->Forward()) return false;
    std::printf("\nslice %d x %d, %d projections of -60 to 60 degrees, batch of %d rows\n",
                rSize.iX, rSize.iZ, rSize.iProjs, aScene.iRows);
    PrintTitle("projectors");
    PrintProjectors(*pDevice, aScene, rSize.iRepeats, rCeilings);
    std::printf("  %-25s %10s %9s %24s\n", "other kernels", "us/batch", "GB/s",
                "of the copy bandwidth");
    PrintStreams(*pDevice, aScene, rSize.iRepeats, rCeilings);
    pDevice.reset();
    PrintAlignment(rSize.iX, rSize.iRepeats, rCeilings);
    return PrintSmoothing(rSize);
}

bool PrintBatches(const BenchSize& rSize, const Ceilings& rCeilings)
{
    std::printf("\nthe same by the rows of a batch\n");
    for (int iRows = 32; iRows <= rSize.iMostRows; iRows *= 2)
    {
        const Scene aScene(iRows, rSize.iX, rSize.iZ, rSize.iProjs);
        const auto pDevice = std::make_unique<CDeviceScene>();
        if (!pDevice->Create(aScene) || !pDevice->Forward()) return false;
        const double dMiB = 4.0 * rSize.iX * rSize.iZ * iRows / (1 << 20);
        char acTitle[32];
        std::snprintf(acTitle, sizeof acTitle, "%d rows, %.0f MiB", iRows, dMiB);
        PrintTitle(acTitle);
        PrintProjectors(*pDevice, aScene, rSize.iRepeats, rCeilings);
    }
    return true;
}
