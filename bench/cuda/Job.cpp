#include "bench/cuda/Job.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <numeric>
#include <optional>
#include <vector>

#include "Util/TomoVolume.h"
#include "gpulib/App/Iteration/TomoEm.h"
#include "gpulib/App/Iteration/TomoSart.h"
#include "gpulib/App/Job.h"
#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"

namespace
{
constexpr double g_dDegree = 0.017453292519943295;

float AngleOf(const Job& rJob, int iProj)
{
    return -60.0f + 120.0f * float(iProj) / float(std::max(rJob.iProjs - 1, 1));
}

/// Centre, half axes and density; lengths in parts of half the volume's width or height.
struct Ellipse
{
    double dX, dZ, dA, dB, dDensity;
};
constexpr Ellipse g_aEllipses[] = {
    {0.0, 0.0, 0.7, 0.8, 1.0}, {-0.3, 0.2, 0.1, 0.3, 0.6}, {0.35, -0.3, 0.05, 0.2, 1.5}};

/// Length of a ray within an ellipse, times its density.
double RaySum(const Ellipse& rE, const Job& rJob, double dU, double dCos, double dSin)
{
    const double dHalfX = 0.5 * rJob.iX, dHalfZ = 0.5 * rJob.iZ;
    const double dA = rE.dA * dHalfX, dB = rE.dB * dHalfZ;
    const double dRadius2 = dA * dA * dCos * dCos + dB * dB * dSin * dSin;
    const double dFrom = dU - (rE.dX * dHalfX * dCos + rE.dZ * dHalfZ * dSin);
    const double dInside = std::max(dRadius2 - dFrom * dFrom, 0.0);
    return 2 * rE.dDensity * dA * dB * std::sqrt(dInside) / dRadius2;
}
}  // namespace

bool UseCuda()
{
    std::string strReason;
    SetBackend(nullptr);
    SetBackend(MakeCudaBackend(0, strReason));
    if (!GetBackend()) return DeviceFail("%s", strReason.c_str());
    int iDevice = 0;
    while (GetBackend()->GetDeviceMemory(iDevice) == 0) ++iDevice;
    return GetBackend()->SelectDevice(iDevice);
}

void FillStack(const Job& rJob, Util_Volume& rStack)
{
    rStack.SetSize(rJob.iX, rJob.iY, rJob.iProjs);
    std::vector<float> vfLine(rJob.iX), vfScaled(rJob.iX);
    for (int n = 0; n < rJob.iProjs; ++n)
    {
        const double dAngle = double(AngleOf(rJob, n)) * g_dDegree;
        for (int x = 0; x < rJob.iX; ++x)
        {
            double dSum = 0;
            for (const Ellipse& rEllipse : g_aEllipses)
                dSum += RaySum(rEllipse, rJob, x - 0.5 * (rJob.iX - 1), std::cos(dAngle),
                               std::sin(dAngle));
            vfLine[x] = float(dSum);
        }
        for (int y = 0; y < rJob.iY; ++y)  // rows differ
        {
            const float fScale = 1.0f + 0.5f * float(y) / float(rJob.iY);
            std::ranges::transform(vfLine, vfScaled.begin(), [=](float f) { return fScale * f; });
            rStack.SetLineX(vfScaled.data(), y, n);
        }
    }
}

double RunJob(const Job& rJob, Util_Volume& rStack, Util_Volume& rVolume,
              CCudaClock::Totals* pTotals)
{
    rVolume.SetSize(rJob.iX, rJob.iY, rJob.iZ);
    std::fill_n(rVolume.GetData(), rVolume.GetVoxels(), rJob.bEm ? 1.0f : 0.0f);
    CTomoVolume aTomoVolume(&rVolume, 1);
    std::vector<float> vfAngles;
    std::vector<unsigned> vuiIndex(rJob.iProjs), vuiRange;
    std::iota(vuiIndex.begin(), vuiIndex.end(), 0u);
    for (int n = 0; n < rJob.iProjs; ++n) vfAngles.push_back(AngleOf(rJob, n));
    for (int i = 0; i < rJob.iProjs * rJob.iY; ++i)
        vuiRange.insert(vuiRange.end(), {0u, unsigned(rJob.iX)});

    ReconJob aJob;
    aJob.pProjs = &rStack;
    aJob.pTomoVol = &aTomoVolume;
    aJob.fAngles = vfAngles;
    aJob.uiRangeX = vuiRange;
    aJob.uiIterations = unsigned(rJob.iIterations);
    aJob.uiNumSets = rJob.uiSets;
    aJob.uiProjIndex = vuiIndex;
    const std::unique_ptr<CTomoRecon> pRecon =
        rJob.bEm ? std::unique_ptr<CTomoRecon>(std::make_unique<CTomoEm>(aJob))
                 : std::make_unique<CTomoSart>(aJob);

    std::optional<CCudaClock> aClock;
    if (pTotals) aClock.emplace();
    const auto aStart = std::chrono::steady_clock::now();
    const bool bDone = pRecon->DoIt({.iSizeY = rJob.iY});
    const std::chrono::duration<double> aTime = std::chrono::steady_clock::now() - aStart;
    if (!bDone || (aClock && !aClock->Take(*pTotals)))
        return std::numeric_limits<double>::quiet_NaN();
    return aTime.count();
}
