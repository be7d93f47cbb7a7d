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

/// |a - b| / |b|; infinite when a value is not finite or the sizes differ.
double RelativeError(const auto& rGot, const auto& rExpected)
{
    double dError = 0, dNorm = 0;
    for (std::size_t k = 0; k < std::min(rGot.size(), rExpected.size()); ++k)
    {
        dError += (double(rGot[k]) - rExpected[k]) * (double(rGot[k]) - rExpected[k]);
        dNorm += double(rExpected[k]) * rExpected[k];
    }
    const double dRelative = std::sqrt(dNorm > 0 ? dError / dNorm : dError);
    const bool bUsable = rGot.size() == rExpected.size() && std::isfinite(dRelative);
    return bUsable ? dRelative : std::numeric_limits<double>::infinity();
}

/// How far the result of a job lies from the expected one, relative: the volume, the selected
/// projections or the R-factors, whichever is worst; infinite when anything is not finite.
double JobError(const TestJob& rJob, const TestData& rGot, const TestData& rExpected);
