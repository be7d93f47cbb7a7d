#pragma once

#include <algorithm>
#include <cmath>
#include <limits>

#include "tests/oracle/Oracle.h"

// Whole jobs, all rows.

/// Volume, stack and R-factors, before or after a job.
struct TestData
{
    std::vector<float> vfProjs;       // [proj][y][x]
    std::vector<float> vfVolume;      // [z][y][x]
    std::vector<unsigned> vuiRangeX;  // [proj][y][2]
    Values vdRfactor;                 // [iteration][list position][2]
    std::string strError;             // of the first worker that failed
};

TestData RunOracle(const TestJob& rJob, const TestData& rStart);

/// |a - b| / |b|; infinite when the sizes differ, a value is not finite or a missing one is
/// another.
double RelativeError(const auto& rGot, const auto& rExpected)
{
    constexpr double dInfinity = std::numeric_limits<double>::infinity();
    double dError = rGot.size() == rExpected.size() ? 0 : dInfinity, dNorm = 0;
    for (std::size_t k = 0; k < std::min(rGot.size(), rExpected.size()); ++k)
    {
        const double dGot = rGot[k], dExpected = rExpected[k];
        const bool bMissing = dExpected < -1e15;
        if (!bMissing) dNorm += dExpected * dExpected;
        if (dGot != dExpected) dError += bMissing ? dInfinity : std::pow(dGot - dExpected, 2);
    }
    const double dRelative = std::sqrt(dNorm > 0 ? dError / dNorm : dError);
    return std::isfinite(dRelative) ? dRelative : dInfinity;
}

/// How far the result of a job lies from the expected one: the worst of volume, projections and
/// R-factors.
inline double JobError(const TestData& rGot, const TestData& rExpected)
{
    return std::max({RelativeError(rGot.vfVolume, rExpected.vfVolume),
                     RelativeError(rGot.vfProjs, rExpected.vfProjs),
                     RelativeError(rGot.vdRfactor, rExpected.vdRfactor)});
}
