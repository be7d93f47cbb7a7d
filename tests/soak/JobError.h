#pragma once

#include <cmath>

#include "tests/oracle/JobOracle.h"

/// How far the result of a job lies from the expected one, relative: the volume, the selected
/// projections or the R-factors, whichever is worst. NaN when anything is.
double JobError(const TestJob& rJob, const TestData& rGot, const TestData& rExpected);

/// What a few roundings of the samples' positions and of the inputs do to the oracle's result:
/// little, but to the few jobs of EM where rays hardly touch anything, or nothing by a hair.
double JobDoubt(const TestJob& rJob, const TestData& rStart, const TestData& rExpected);

/// NaN is the largest number.
inline double Larger(double dA, double dB)
{
    return std::isnan(dA) || dA > dB ? dA : dB;
}
