// talven-gpu-bench: rates of the CUDA backend beside what the device can do at most, whole jobs,
// and whether they compute what the host computes.
//
//   talven-gpu-bench            print the table
//   talven-gpu-bench --devices  name the devices and end
//   talven-gpu-bench --tiny     the same at sizes for a device in software
//
// Ends with 0, 1 when something failed or differs, 2 when there is no device.

#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

#include "bench/cuda/Job.h"
#include "bench/cuda/Sections.h"
#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"

namespace
{
/// All devices, a line each, and the date.
void PrintDevices()
{
    for (int i = 0; i < GetBackend()->GetDeviceCount(); ++i)
    {
        const bool bSelected = GetBackend()->SelectDevice(i);
        std::printf("GPU %d: %s\n", i, (bSelected ? DescribeDevice() : TakeDeviceError()).c_str());
    }
    const std::time_t tNow = std::time(nullptr);
    char acDate[32];
    std::strftime(acDate, sizeof(acDate), "%Y-%m-%d", std::gmtime(&tNow));
    std::printf("%s\n", acDate);
}

bool MeasureCeilings(const BenchSize& rSize, Ceilings& rCeilings)
{
    constexpr int iLanes = 64;
    const int iWidth = rSize.iX + 2, iHeight = rSize.iZ + 2;
    const int iRows = std::min(iLanes, rSize.iBandRows);
    const auto Fetches = [&]
    { return MeasureFetches(iWidth, iHeight, rSize.iProjs, iRows, rSize.iRepeats); };
    if (!UseCuda(true)) return false;
    rCeilings.dPointFetches = Fetches();
    if (!UseCuda(false) || !MeasureCopies(rSize.tCopyBytes, rSize.iRepeats, rCeilings))
        return false;
    rCeilings.dFilterFetches = Fetches();
    std::printf("\nmeasured ceilings\n");
    std::printf("  %-36s %10.1f G/s\n  %-36s %10.1f G/s\n", "bilinear texture reads",
                rCeilings.dFilterFetches / 1e9, "reads of single texels",
                rCeilings.dPointFetches / 1e9);
    std::printf("  %-36s %10.1f GB/s\n  %-36s %10.1f GB/s\n  %-36s %10.1f GB/s\n",
                "device memory, copies", rCeilings.dCopy / 1e9, "pinned memory to the device",
                rCeilings.dToDevice / 1e9, "device to pinned memory", rCeilings.dToHost / 1e9);
    return !std::isnan(rCeilings.dFilterFetches) && !std::isnan(rCeilings.dPointFetches);
}

bool PrintAll(const BenchSize& rSize)
{
    Ceilings aCeilings;
    return MeasureCeilings(rSize, aCeilings) && UseCuda(false) &&
           PrintKernels(rSize, aCeilings, false) && UseCuda(true) &&
           PrintKernels(rSize, aCeilings, true) && UseCuda(false) && PrintJobs(rSize) &&
           PrintAgreement(rSize);
}
}  // namespace

int main(int argc, char** argv)
{
    const std::string strOption = argc == 2 ? argv[1] : "";
    if (argc > 2 || (argc == 2 && strOption != "--devices" && strOption != "--tiny"))
    {
        std::fprintf(stderr, "usage: talven-gpu-bench [--devices | --tiny]\n");
        return 2;
    }
    if (!UseCuda(false))
    {
        std::printf("no GPU: %s\n", TakeDeviceError().c_str());
        return 2;
    }
    PrintDevices();
    if (strOption == "--devices") return 0;
    bool bGood = PrintAll(strOption == "--tiny" ? g_aTinySize : g_aFullSize);
    const std::string strError = TakeDeviceError();  // of a figure that is "nan"
    if (!strError.empty()) std::printf("Error: %s\n", strError.c_str());
    bGood = bGood && strError.empty();
    SetBackend(nullptr);
    std::printf("\n%s\n", bGood ? "PASS" : "FAIL");
    return bGood ? 0 : 1;
}
