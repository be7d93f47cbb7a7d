#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Util/Util_Thread.h"

class CJobMain;

/// One worker thread per device in use. The session's thread gives one command to all of them and
/// sleeps until all have finished it.
class CGpuThread : public Util_Thread
{
public:
    ~CGpuThread() override;

    /// Starts iThreads workers, each bound to one device for life.
    /// \return false when the system gives no thread
    [[nodiscard]] static bool CreateThreads(int iThreads, const int* piDeviceIDs);
    // Jobs. False with a reason when the job was refused or failed; the workers are idle then.
    [[nodiscard]] static bool Reconstruct(std::string& rReason);
    [[nodiscard]] static bool Project(std::string& rReason);
    // bLog: the request with the logarithmic scale.
    [[nodiscard]] static bool Compare(bool bLog, std::string& rReason);
    [[nodiscard]] static bool Transform(bool bLog, std::string& rReason);
    static void StopAll();        ///< ends the loops of all workers
    static void DeleteThreads();  ///< joins; after StopAll

    void SetThreadID(int iThreadID) { m_iThreadID = iThreadID; }
    void SetDeviceID(int iDeviceID) { m_iDeviceID = iDeviceID; }
    /// Hands one command to this worker, which need not wait for it yet.
    void SetCmd(int iCmd);

protected:
    void ThreadMain() override;

private:
    enum ECmd
    {
        eStop = -1,
        eNone = 0,
        eRunJob = 1
    };
    int mWaitForCmd();
    static void mThreadFinished();
    static void mRunAll(int iCmd);
    [[nodiscard]] static bool mRunJob(CJobMain&& rJob, std::string& rReason);

    static std::vector<std::unique_ptr<CGpuThread>> m_vpThreads;
    static std::mutex m_aMutexFinish;  // guards m_iNumThreadsFinished
    static std::condition_variable m_aCondFinish;
    static int m_iNumThreadsFinished;
    static CJobMain* m_pJob;  // the one that runs; set before the workers get the command

    int m_iDeviceID = 0;
    int m_iThreadID = 0;
    int m_iCmd = eNone;  // given and not yet taken; under m_aMutex of the base
};
