#pragma once

#include <string>

#include "server/Recon/DoForwardProj.h"
#include "server/Thread/BandSplit.h"

/// The reprojection job: one object per worker and run, from the volume to the stack.
///
/// The class-wide operations belong to the session's thread, before and after the workers run.
class CProjMain
{
public:
    /// Whether a job can run with what the client uploaded; false with the reason otherwise.
    [[nodiscard]] static bool Validate(std::string& rReason);
    /// Cuts the rows of the stack into bands for iWorkers workers.
    static void CalcSubsetDim(int iWorkers);
    static void FreeMemory() { m_aBands.FreeMemory(); }

    /// Runs the band of one worker; a failure goes to CJobStatus.
    void DoIt(int iThreadID);

private:
    [[nodiscard]] bool mRun(int iThreadID);
    void mSetInputs();

    static CBandSplit m_aBands;
    CDoForwardProj m_aDoForwardProj;
};
