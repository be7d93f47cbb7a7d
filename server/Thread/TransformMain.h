#pragma once

#include <string>

#include "server/Recon/DoTransform.h"
#include "server/Thread/BandSplit.h"

/// The transform job: one object per worker and run, from the measured stack to the stack.
///
/// The class-wide operations belong to the session's thread, before and after the workers run.
class CTransformMain
{
public:
    /// Whether the job can run with the request and the uploads; false with the reason otherwise.
    /// \param bLog  the request with the logarithmic scale
    [[nodiscard]] static bool Validate(bool bLog, std::string& rReason);
    /// Cuts the rows of the stack into bands for iWorkers workers.
    static void CalcSubsetDim(int iWorkers);
    static void FreeMemory() { m_aBands.FreeMemory(); }

    /// Runs the band of one worker; a failure goes to CJobStatus.
    void DoIt(bool bLog, int iThreadID);

private:
    [[nodiscard]] bool mRun(bool bLog, int iThreadID);
    void mSetInputs(bool bLog);

    static CBandSplit m_aBands;
    CDoTransform m_aDoTransform;
};
