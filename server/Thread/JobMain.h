#pragma once

#include <mutex>
#include <optional>
#include <string>

#include "Util/Util_Time.h"
#include "gpulib/App/Job.h"
#include "server/Thread/BandSplit.h"

/// One job: checked and described by the session's thread, run in shares by all workers at once.
///
/// The kinds of jobs differ in what they check and describe, in one worker's run and in what
/// becomes of the results. Workers call DoIt(), and Fail() from any thread; all else belongs to the
/// session's thread.
class CJobMain
{
public:
    virtual ~CJobMain() = default;
    CJobMain(const CJobMain&) = delete;
    CJobMain& operator=(const CJobMain&) = delete;

    /// Describes the job from what the client uploaded and makes room for its results.
    /// \return false with a reason when it cannot run; nothing has changed then
    [[nodiscard]] virtual bool Prepare(std::string& rReason) = 0;
    /// Cuts the rows of the stack into bands for iWorkers workers.
    void CalcSubsetDim(int iWorkers);
    void FreeMemory() { m_aBands.FreeMemory(); }
    /// Runs the share of worker iThreadID on device iDeviceID of its thread.
    void DoIt(int iThreadID, int iDeviceID);
    /// Notes a failure; the first reason is kept. Workers that wait for this one are released.
    void Fail(const std::string& rReason);
    /// After all workers have ended. \return false with the reason of a failure
    [[nodiscard]] bool Finish(std::string& rReason);

protected:
    /// \param pcName          of the job, in the line that tells its time
    /// \param bTimesEachShare each worker prints such a line, not the session
    CJobMain(const char* pcName, bool bTimesEachShare);
    virtual bool mHasWork(const JobShare& rShare) const { return rShare.iSizeY > 0; }
    /// \return false with the reason noted (TakeDeviceError)
    [[nodiscard]] virtual bool mRun(const JobShare& rShare) = 0;
    virtual void mRelease() {}  ///< lets workers go that wait for others
    virtual void mDiscard() {}  ///< after a failure: what workers have added to results

private:
    [[nodiscard]] bool mDoShare(int iThreadID, int iDeviceID);

    const char* const m_pcName;
    const bool m_bTimesEachShare;
    Util_Time m_aTime;  // of the whole job
    CBandSplit m_aBands;
    std::mutex m_aMutex;  // guards the failure
    std::optional<std::string> m_strFailure;
};
