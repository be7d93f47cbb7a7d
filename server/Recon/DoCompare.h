#pragma once

#include "gpulib/App/Align/Compare.h"
#include "gpulib/App/Job.h"

/// Comparison of a measured projection with a projection of the stack.
class CDoCompare
{
public:
    explicit CDoCompare(const AlignJob& rJob) : m_rJob(rJob) {}
    /// \param rTotals  receives the sums of the band
    /// \return false with the reason noted (TakeDeviceError)
    [[nodiscard]] bool DoIt(const JobShare& rShare, CompareTotals& rTotals) const
    {
        CCompare aCompare(m_rJob);
        const bool bDone = aCompare.DoIt(rShare);
        rTotals = aCompare.GetTotals();
        return bDone;
    }

private:
    const AlignJob& m_rJob;
};
