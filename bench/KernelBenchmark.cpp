// Google Benchmark of every kernel and copy, on every instruction set, for whole and small batches.

#include <benchmark/benchmark.h>

#include <string>

#include "bench/Literal.h"
#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"

namespace
{
using Operation = bool (CDeviceScene::*)();

void Run(benchmark::State& rState, const std::string& rSet, int iRows, Operation pOperation,
         double dWorkPerRow)
{
    SetBackend(MakeHostBackend(rSet, 1));
    {
        const Scene aScene(iRows);
        CDeviceScene aDevice;
        bool bDone = GetBackend()->SelectDevice(0) && aDevice.Create(aScene) && aDevice.Forward();
        for (auto _ : rState) bDone = (aDevice.*pOperation)() && bDone;
        if (!bDone) rState.SkipWithError(TakeDeviceError().c_str());
    }
    SetBackend(nullptr);
    rState.counters["work"] =
        benchmark::Counter(dWorkPerRow * iRows, benchmark::Counter::kIsIterationInvariantRate);
}

void Literal(benchmark::State& rState, void (*pLoop)(const Scene&, int, std::vector<float>&),
             double dWork)
{
    const Scene aScene(1);
    std::vector<float> vfResult;
    for (auto _ : rState) pLoop(aScene, 0, vfResult);
    rState.counters["work"] =
        benchmark::Counter(dWork, benchmark::Counter::kIsIterationInvariantRate);
}
}  // namespace

int main(int argc, char** argv)
{
    const Scene aScene(1);
    const double dSamples = aScene.CountSamples(), dUpdates = aScene.CountUpdates();
    const double dPixels = double(aScene.iX) * aScene.iProjs;
    const double dVoxels = double(aScene.iX) * aScene.iZ;
    struct Entry
    {
        const char* pcName;
        Operation pOperation;
        double dWorkPerRow;
    };
    for (const std::string& rSet : GetHostInstructionSets())
        for (const int iRows : {32, 16, 8, 4, 1})
            for (const Entry& rEntry : {Entry{"forward", &CDeviceScene::Forward, dSamples},
                                        {"back", &CDeviceScene::Back, dUpdates},
                                        {"sweep", &CDeviceScene::Sweep, dUpdates},
                                        {"diff", &CDeviceScene::Diff, dPixels},
                                        {"sumabs", &CDeviceScene::SumAbs, dPixels},
                                        {"upload", &CDeviceScene::UploadSlices, dVoxels},
                                        {"download", &CDeviceScene::DownloadSlices, dVoxels}})
                benchmark::RegisterBenchmark(
                    (rSet + "/" + rEntry.pcName + "/rows:" + std::to_string(iRows)).c_str(), Run,
                    rSet, iRows, rEntry.pOperation, rEntry.dWorkPerRow)
                    ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("literal/forward", Literal, LiteralForward, dSamples)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("literal/back", Literal, LiteralBack, dUpdates)
        ->Unit(benchmark::kMillisecond);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
