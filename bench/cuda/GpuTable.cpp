// talven-gpu-bench: rates of the CUDA backend beside what the device can do at most, whole jobs,
// and whether they compute what the host computes.
//
//   talven-gpu-bench            print the table
//   talven-gpu-bench --devices  name the devices and end
//   talven-gpu-bench --tiny     the same at sizes for a device in software
//
// Ends with 0, 1 when something failed or differs, 2 when there is no device.

#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <tuple>

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

bool PrintCeilings(const BenchSize& rSize, Ceilings& rCeilings)
{
    if (!MeasureCeilings(rSize.aCeilings, rCeilings)) return false;
    std::printf("\nmeasured ceilings, second-level cache of %zu MiB\n", rCeilings.tL2Bytes >> 20);
    for (const auto& [pcName, dRate, pcUnit] :
         {std::tuple{"16-byte loads, first-level cache", rCeilings.dL1, "GB/s"},
          {"16-byte loads, second-level cache", rCeilings.dL2, "GB/s"},
          {"device memory, copies", rCeilings.dMemory, "GB/s"},
          {"FP32 multiply-adds", rCeilings.dFloat, "G/s"},
          {"instructions, half FP32", rCeilings.dIssue, "G/s"},
          {"pinned memory to the device", rCeilings.dToDevice, "GB/s"},
          {"device to pinned memory", rCeilings.dToHost, "GB/s"}})
        std::printf("  %-36s %10.1f %s\n", pcName, dRate / 1e9, pcUnit);
    return true;
}

bool PrintAll(const BenchSize& rSize)
{
    Ceilings aCeilings;
    return PrintCeilings(rSize, aCeilings) && PrintKernels(rSize, aCeilings) &&
           PrintBatches(rSize, aCeilings) && PrintJobs(rSize) && PrintAgreement(rSize);
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
    if (!UseCuda())
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
