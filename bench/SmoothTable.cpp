#include "bench/SmoothTable.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "Util/Util_Volume.h"
#include "bench/Literal.h"
#include "bench/ThreadTime.h"
#include "gpulib/App/Smooth/TomoSmooth.h"
#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"

namespace
{
constexpr int g_aiSize[3] = {512, 512, 256}, g_aiKernel[3] = {7, 7, 7};
constexpr int g_iFirst = 126, g_iEnd = 130;  // slices that the plain loop does
constexpr std::size_t g_tSlice = std::size_t(512) * 512, g_tVoxels = g_tSlice * 256;
constexpr double g_dFloor = 10;  // Gaussian to the plain loop, every instruction set

/// A bell of deviation 1.5 in the middle, or the same with one value changed: no product then.
std::vector<float> MakeKernel(bool bGaussian)
{
    std::vector<float> vfKernel;
    for (int i = 0; i < 343; ++i)
    {
        const int x = i % 7 - 3, y = i / 7 % 7 - 3, z = i / 49 - 3;
        vfKernel.push_back(std::exp(-0.5f * float(x * x + y * y + z * z) / 2.25f) / 53);
    }
    if (!bGaussian) vfKernel[100] *= 2;
    return vfKernel;
}

/// Seconds of the best of some passes with all their copies, infinite when the device refuses.
double TimeSmooth(const std::vector<float>& rVolume, const std::vector<float>& rKernel, int iRuns,
                  Util_Volume& rOut)
{
    Util_Volume aKernel;
    aKernel.SetSize(g_aiKernel[0], g_aiKernel[1], g_aiKernel[2]);
    std::ranges::copy(rKernel, aKernel.GetData());
    CTomoSmooth aSmooth;
    aSmooth.SetVolume(&rOut);
    aSmooth.SetKernel(&aKernel);
    aSmooth.SetDeviceInfo(1, 0, 0);
    double dBest = INFINITY;
    for (int i = 0; i < iRuns && GetBackend()->SelectDevice(0); ++i)
    {
        std::ranges::copy(rVolume, rOut.GetData());
        const double dStart = ThreadSeconds();
        if (!aSmooth.DoIt()) return INFINITY;
        aSmooth.Assemble();
        dBest = std::min(dBest, ThreadSeconds() - dStart);
    }
    return dBest;
}

bool Agrees(const Util_Volume& rOut, const std::vector<float>& rLiteral)
{
    double dWorst = 0;
    for (std::size_t i = 0; i < rLiteral.size(); ++i)
        dWorst = std::max(
            dWorst, std::fabs(double(rOut.GetData()[i + g_iFirst * g_tSlice]) / rLiteral[i] - 1));
    return dWorst < 5e-6;  // of both loops together
}
}  // namespace

bool PrintSmooth()
{
    std::vector<float> vfVolume(g_tVoxels);
    Util_Volume aOut;
    aOut.SetSize(g_aiSize[0], g_aiSize[1], g_aiSize[2]);
    unsigned uiState = 1;
    for (float& rfValue : vfVolume)
        rfValue = float((uiState = uiState * 1664525u + 1013904223u) >> 8) * 0x1p-24f + 0.1f;

    bool bGood = true;
    std::printf("\nvolume %d x %d x %d, kernel 7 x 7 x 7, one core\n\n", g_aiSize[0], g_aiSize[1],
                g_aiSize[2]);
    std::printf("%-10s %16s %9s %16s %9s\n", "", "Gaussian, s", "", "any kernel, s", "");
    std::vector<float> avfLiteral[2];
    double dLiteral = 0;
    for (const bool bGaussian : {false, true})
    {
        avfLiteral[bGaussian].resize(g_tSlice * (g_iEnd - g_iFirst));
        const double dStart = ThreadSeconds();
        LiteralSmooth(vfVolume.data(), g_aiSize, MakeKernel(bGaussian).data(), g_aiKernel, g_iFirst,
                      g_iEnd, avfLiteral[bGaussian].data());
        dLiteral = (ThreadSeconds() - dStart) * g_aiSize[2] / (g_iEnd - g_iFirst);
    }
    std::printf("%-10s %16.2f %9s %16.2f %9s  (%d slices measured)\n", "plain loop", dLiteral, "1x",
                dLiteral, "1x", g_iEnd - g_iFirst);
    for (const std::string& rSet : GetHostInstructionSets())
    {
        SetBackend(MakeHostBackend(rSet, 1));
        const double dGaussian = TimeSmooth(vfVolume, MakeKernel(true), 3, aOut);
        bool bSame = Agrees(aOut, avfLiteral[true]);
        const double dAny = TimeSmooth(vfVolume, MakeKernel(false), 1, aOut);
        bSame = bSame && Agrees(aOut, avfLiteral[false]);
        SetBackend(nullptr);
        std::printf("%-10s %16.2f %8.0fx %16.2f %8.1fx\n", rSet.c_str(), dGaussian,
                    dLiteral / dGaussian, dAny, dLiteral / dAny);
        if (!bSame)
            std::printf("Error: differs from the plain loop %s\n", TakeDeviceError().c_str());
        if (!(dLiteral / dGaussian >= g_dFloor))
            std::printf("  below the floor of %.0fx\n", g_dFloor);
        bGood = bGood && bSame && dLiteral / dGaussian >= g_dFloor;
    }
    return bGood;
}
