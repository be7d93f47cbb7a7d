#pragma once

#include <string>

#include "server/Recon/DoCompare.h"
#include "server/Thread/BandSplit.h"

/// The comparison job: one object per worker and run; the sums go to CCompareSum.
///
/// The class-wide operations belong to the session's thread, before and after the workers run.
class CCompareMain
{
public:
    /// Whether the job can run with the request and the uploads; false with the reason otherwise.
    /// \param bLog  the request with the logarithmic scale
    [[nodiscard]] static bool Validate(bool bLog, std::string& rReason);
    /// Cuts all rows of the stack into bands for iWorkers workers; the rows that the request names
    /// do not count.
    static void CalcSubsetDim(int iWorkers);
    static void FreeMemory() { m_aBands.FreeMemory(); }

    /// Runs the band of one worker; a failure goes to CJobStatus.
    void DoIt(bool bLog, int iThreadID);

private:
    [[nodiscard]] bool mRun(bool bLog, int iThreadID);
    void mSetInputs(bool bLog);
    void mPerformSum(int iStartY) const;

    static CBandSplit m_aBands;
    CDoCompare m_aDoCompare;
};
