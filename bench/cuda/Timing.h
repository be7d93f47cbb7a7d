#pragma once

#include <algorithm>
#include <limits>

#include "gpulib/Device/Cuda/CudaClock.h"

/// Least time on the device of what fCall queues under a name, over some calls.
/// \param fCall  returns whether the device took all; called once more before, untimed
/// \return seconds, NaN with the reason noted when the device refuses
template <class F>
double BestSeconds(const char* pcName, int iRepeats, F fCall)
{
    CCudaClock aClock;
    CCudaClock::Totals aTotals;
    double dBest = std::numeric_limits<double>::infinity();
    for (int i = 0; i <= iRepeats; ++i)
    {
        if (!fCall() || !aClock.Take(aTotals)) return std::numeric_limits<double>::quiet_NaN();
        if (i > 0) dBest = std::min(dBest, aTotals[pcName].dSeconds);
    }
    return dBest;
}
