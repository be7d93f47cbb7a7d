#include "tests/soak/JobError.h"

#include <algorithm>
#include <random>

namespace
{
std::vector<float> GetSelected(const TestJob& rJob, const TestData& rData)
{
    const std::size_t tPixels = std::size_t(rJob.iProjX) * std::size_t(rJob.iY);
    std::vector<float> vf;
    for (const unsigned n : rJob.vuiList)
        vf.insert(vf.end(), &rData.vfProjs[n * tPixels], &rData.vfProjs[n * tPixels] + tPixels);
    return vf;
}

/// Each sum relative to itself, as far as it is more than rounding beside the others.
double StatError(const TestData& rGot, const TestData& rExpected)
{
    if (rGot.vdRfactor.size() != rExpected.vdRfactor.size()) return HUGE_VAL;
    if (rGot.vdRfactor.empty()) return 0;
    const double dLargest = std::ranges::max(rExpected.vdRfactor);
    double dError = 0;
    for (std::size_t k = 0; k < rGot.vdRfactor.size(); ++k)
    {
        const double dExpected = rExpected.vdRfactor[k];
        const double dRaw = rExpected.vdRfactor[k / 2 * 2];
        const double dSize = k % 2 == 0 ? dRaw : dExpected + 0.05 * dRaw;
        dError = Larger(
            dError, std::fabs(rGot.vdRfactor[k] - dExpected) / (dSize + 0.01 * dLargest + 1e-6));
    }
    return dError;
}
}  // namespace

double JobError(const TestJob& rJob, const TestData& rGot, const TestData& rExpected)
{
    if (rJob.bReproject)
        return RelativeError(GetSelected(rJob, rGot), GetSelected(rJob, rExpected));
    return Larger(RelativeError(rGot.vfVolume, rExpected.vfVolume), StatError(rGot, rExpected));
}

double JobDoubt(const TestJob& rJob, const TestData& rStart, const TestData& rExpected)
{
    constexpr float fTurn = 1e-5f;  // degrees: 5e-6 pixels at 30 pixels from the axis
    TestJob aJob = rJob;
    TestData aStart = rStart;
    std::minstd_rand aRandom;
    std::uniform_real_distribution<float> aNoise(-1e-6f, 1e-6f);  // a few roundings
    for (float& rfAngle : aJob.vfAngles) rfAngle += fTurn;
    for (std::vector<float>* pvf : {&aStart.vfProjs, &aStart.vfVolume})
        for (float& rfValue : *pvf) rfValue *= 1 + aNoise(aRandom);
    // Float positions are rounded by this much, each ray's in its own way. Rays that just touch a
    // corner feel it most: their sums, which EM divides by, are of that size themselves.
    const double dShift = 6e-8 * (rJob.iProjX / 2 + rJob.iVolX + rJob.iVolZ);
    double dDoubt = 0;
    for (unsigned uiSeed = 1; uiSeed <= 6; ++uiSeed)
        dDoubt = Larger(dDoubt, JobError(rJob, RunOracle(aJob, aStart, dShift, uiSeed), rExpected));
    return dDoubt;
}
