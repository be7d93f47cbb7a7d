#pragma once

#include <memory>
#include <string>

#include "server/Thread/BandSplit.h"

class CDoEmRecon;
class CDoReconBase;

/// The reconstruction job: one object per worker and run, from the uploads to volume and R-factors.
///
/// The class-wide operations belong to the session's thread, before and after the workers run.
class CReconMain
{
public:
    CReconMain();
    ~CReconMain();

    /// Whether a job can run with what the client uploaded; false with the reason otherwise.
    [[nodiscard]] static bool Validate(std::string& rReason);
    /// Sizes the R-factor store and clears it. Plain back projection leaves the store alone.
    static void Prepare();
    /// After a failure: the sums of the workers that came to their end go.
    static void Discard();
    /// Cuts the rows of the stack into bands for iWorkers workers.
    static void CalcSubsetDim(int iWorkers);
    static void FreeMemory() { m_aBands.FreeMemory(); }

    /// Writes the volume, one float section per slice, to the file of the setting DebugVolume.
    /// Ready for use in a debugger; no command comes here. \return false when there is no volume or
    /// the file cannot be written
    [[nodiscard]] static bool SaveVol();

    /// Runs the band of one worker; a failure goes to CJobStatus.
    void DoIt(int iThreadID, int iDeviceID);

private:
    void mCreateInstance(int iThreadID, int iDeviceID);
    void mSetInputs();
    [[nodiscard]] bool mRun(int iThreadID, int iDeviceID);
    void mAssembleRfactor();

    static CBandSplit m_aBands;
    std::unique_ptr<CDoReconBase> m_pDoReconBase;
    CDoEmRecon* m_pIterative = nullptr;  // the same object when it is one of EM or SART
};
