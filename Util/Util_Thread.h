#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

/// Base of the worker threads: one thread, a mutex and a condition that derived classes share for
/// their own signalling, and two flags.
///
/// A derived destructor must have joined the thread (WaitForExit(-1)) before its members go.
class Util_Thread
{
public:
    Util_Thread() = default;
    virtual ~Util_Thread();
    Util_Thread(const Util_Thread&) = delete;
    Util_Thread& operator=(const Util_Thread&) = delete;

    /// Starts the thread unless it is alive; ThreadMain marks it alive.
    /// \return false when the system gives no thread
    bool Start();
    void Stop();  ///< requests a stop
    /// Joins the thread when fSeconds is negative, else waits that long (a signal on the condition
    /// ends the wait early). \return whether the thread is still alive
    bool WaitForExit(float fSeconds);
    bool IsAlive();

protected:
    virtual void ThreadMain();  ///< the base marks the thread alive and ends at once
    bool mNeedStop();
    void mSetAlive(bool bAlive);
    void mYield(float fSeconds);
    void mThreadExit() { mSetAlive(false); }  ///< last act of ThreadMain

    std::mutex m_aMutex;              // guards both flags and what derived classes say
    std::condition_variable m_aCond;  // waited on under m_aMutex

private:
    std::thread m_aThread;
    bool m_bIsAlive = false;
    bool m_bStopCmd = false;
};
