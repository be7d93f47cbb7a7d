#pragma once

#include "gpulib/App/Align/CompareImpl.h"

/// Tells how well a measured projection, resampled and rescaled, matches a band of rows of a
/// projection of the stack: nine sums over the pixels that it covers.
class CCompare
{
public:
    /// \param rJob  borrowed for the life of this object, with all that it names
    explicit CCompare(const AlignJob& rJob) : m_rJob(rJob) {}
    /// All sums are 0 for a band without rows.
    [[nodiscard]] bool DoIt(const JobShare& rShare)
    {
        return m_aImpl.DoIt(m_rJob, rShare, m_aTotals);
    }
    const CompareTotals& GetTotals() const { return m_aTotals; }

private:
    const AlignJob& m_rJob;
    CCompareImpl m_aImpl;
    CompareTotals m_aTotals = {};
};
