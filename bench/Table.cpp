// talven-bench: rates of the kernels beside a plain loop measured in the same run.
//
//   talven-bench            print the table
//   talven-bench --check    also fail when a ratio falls below its floor

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <functional>
#include <string>
#include <thread>

#include "bench/Literal.h"
#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"

namespace
{
constexpr int g_iRepeats = 7;  // the least time counts: other programs only ever add

struct Floor
{
    const char* pcSet;
    double dForward, dBack;  // ratio to the plain loop, batch of 16 rows
};
constexpr Floor g_aFloors[] = {{"avx512", 70, 8}, {"avx2", 70, 8}, {"baseline", 40, 5}};

double Seconds()
{
    const auto aNow = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration<double>(aNow).count();
}

/// What the calling thread has computed: not moved by other programs on the machine.
double ThreadSeconds()
{
    timespec aTime;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &aTime);
    return double(aTime.tv_sec) + 1e-9 * double(aTime.tv_nsec);
}

/// Least time of one call on this thread, seconds.
double Time(const std::function<void()>& fCall, int iRepeats = g_iRepeats)
{
    double dBest = 1e30;
    for (int i = 0; i < iRepeats; ++i)
    {
        const double dStart = ThreadSeconds();
        fCall();
        dBest = std::min(dBest, ThreadSeconds() - dStart);
    }
    return dBest;
}

struct LiteralTimes
{
    double dForward, dBack;  ///< seconds per row
    std::vector<float> vfSums, vfSlice;
};

bool s_bDone = true;  // all device operations so far

void Demand(bool bDone)
{
    if (!bDone) std::printf("Error: %s\n", TakeDeviceError().c_str());
    s_bDone = s_bDone && bDone;
}

/// A fast kernel that computes something else is no achievement: compares row 0.
void DemandSame(const char* pcWhat, const std::vector<float>& rGot, int iRows, int iX,
                const std::vector<float>& rLiteral)
{
    double dError = 0, dNorm = 0;
    for (std::size_t i = 0; i < rLiteral.size(); ++i)
    {
        const double dGot = rGot[i / iX * iX * iRows + i % iX];
        dError += (dGot - rLiteral[i]) * (dGot - rLiteral[i]);
        dNorm += double(rLiteral[i]) * rLiteral[i];
    }
    const bool bSame = std::sqrt(dError / dNorm) < 1e-5;
    if (!bSame) std::printf("Error: %s differs from the plain loop\n", pcWhat);
    s_bDone = s_bDone && bSame;
}

/// One line of the table. \return whether the ratios reach their floors
bool PrintSet(const std::string& rSet, int iRows, const LiteralTimes& rLiteral)
{
    const Scene aScene(iRows);
    double dForward = 0, dBack = 0;
    SetBackend(MakeHostBackend(rSet, 1));
    {
        CDeviceScene aDevice;
        Demand(GetBackend()->SelectDevice(0) && aDevice.Create(aScene));
        dForward = Time([&] { Demand(aDevice.Forward()); }) / iRows;
        DemandSame("forward projection", aDevice.ReadSums(), iRows, aScene.iX, rLiteral.vfSums);
        Demand(aDevice.Back() && aDevice.DownloadSlices());
        DemandSame("back projection", aDevice.GetVolume(), iRows, aScene.iX, rLiteral.vfSlice);
        dBack = Time([&] { Demand(aDevice.Back()); }) / iRows;
    }
    SetBackend(nullptr);
    const double dForwardRatio = rLiteral.dForward / dForward, dBackRatio = rLiteral.dBack / dBack;
    std::printf("%-10s %4d %14.2f %8.0fx %14.2f %8.1fx\n", rSet.c_str(), iRows,
                aScene.CountSamples() / dForward / 1e9, dForwardRatio,
                aScene.CountUpdates() / dBack / 1e9, dBackRatio);
    for (const Floor& rFloor : g_aFloors)
        if (rSet == rFloor.pcSet && iRows == 16 &&
            (dForwardRatio < rFloor.dForward || dBackRatio < rFloor.dBack))
        {
            std::printf("  below the floor of %.0fx and %.0fx\n", rFloor.dForward, rFloor.dBack);
            return false;
        }
    return true;
}

struct Shares
{
    double dSeconds;  ///< of the slowest worker
    double dOutside;  ///< part of it outside the two projectors
};

/// SART of one batch by each of iWorkers workers at once: upload, iterations, download.
Shares RunSart(int iWorkers, int iIterations)
{
    const Scene aScene(16);
    std::vector<double> vdTotal(iWorkers), vdKernels(iWorkers);
    std::vector<char> vbDone(iWorkers);
    std::vector<std::thread> vThreads;
    for (int w = 0; w < iWorkers; ++w)
        vThreads.emplace_back(
            [&, w]
            {
                CDeviceScene aDevice;
                bool bDone = GetBackend()->SelectDevice(w) && aDevice.Create(aScene);
                const double dStart = Seconds();
                bDone = bDone && aDevice.UploadSlices();
                for (int i = 0; i < iIterations && bDone; ++i)
                {
                    const double dForward = Seconds();
                    bDone = aDevice.Forward();
                    const double dRows = Seconds();
                    bDone = bDone && aDevice.Diff() && aDevice.SumAbs();
                    const double dBack = Seconds();
                    bDone = bDone && aDevice.Back();
                    vdKernels[w] += dRows - dForward + Seconds() - dBack;
                }
                vbDone[w] = bDone && aDevice.DownloadSlices();
                vdTotal[w] = Seconds() - dStart;
            });
    for (std::thread& rThread : vThreads) rThread.join();
    for (const char bDone : vbDone) s_bDone = s_bDone && bDone;
    const std::size_t tSlowest =
        std::size_t(std::max_element(vdTotal.begin(), vdTotal.end()) - vdTotal.begin());
    return {vdTotal[tSlowest], 1 - vdKernels[tSlowest] / vdTotal[tSlowest]};
}

void PrintSart()
{
    constexpr int iIterations = 5;
    SetBackend(MakeHostBackend("", 0));
    const int iAll = GetBackend()->GetDeviceCount();
    const auto Best = [](int iWorkers)
    {
        Shares aBest = RunSart(iWorkers, iIterations);
        for (int i = 1; i < 3; ++i)
        {
            const Shares aNext = RunSart(iWorkers, iIterations);
            if (aNext.dSeconds < aBest.dSeconds) aBest = aNext;
        }
        return aBest;
    };
    const Shares aOne = Best(1), aMany = Best(iAll);
    std::printf("\nSART, %d iterations of one batch of 16 rows per worker, %s:\n", iIterations,
                GetBackend()->GetDetail());
    std::printf("  1 worker    %7.1f ms, %.1f %% outside the two projectors\n", aOne.dSeconds * 1e3,
                aOne.dOutside * 100);
    std::printf("  %d workers   %7.1f ms, %.2fx the work of one\n", iAll, aMany.dSeconds * 1e3,
                iAll * aOne.dSeconds / aMany.dSeconds);
    SetBackend(nullptr);
}
}  // namespace

int main(int argc, char** argv)
{
    const bool bCheck = argc == 2 && std::strcmp(argv[1], "--check") == 0;
    if (argc > 1 && !bCheck)
    {
        std::fprintf(stderr, "usage: talven-bench [--check]\n");
        return 2;
    }
    const Scene aScene(1);
    LiteralTimes aLiteral;
    aLiteral.dForward = Time([&] { LiteralForward(aScene, 0, aLiteral.vfSums); }, 3);
    aLiteral.dBack = Time([&] { LiteralBack(aScene, 0, aLiteral.vfSlice); }, 3);
    std::printf("slice %d x %d, %d projections of -60 to 60 degrees, one core\n\n", aScene.iX,
                aScene.iZ, aScene.iProjs);
    std::printf("%-10s %4s %14s %9s %14s %9s\n", "", "rows", "G samples/s", "forward",
                "G updates/s", "back");
    std::printf("%-10s %4d %14.3f %9s %14.3f %9s\n", "plain loop", 1,
                aScene.CountSamples() / aLiteral.dForward / 1e9, "1x",
                aScene.CountUpdates() / aLiteral.dBack / 1e9, "1x");
    bool bReached = true;
    for (const std::string& rSet : GetHostInstructionSets())
        for (const int iRows : {32, 16, 8, 4, 1})
            bReached = PrintSet(rSet, iRows, aLiteral) && bReached;
    PrintSart();
    if (!s_bDone) return 1;
    return bCheck && !bReached ? 1 : 0;
}
