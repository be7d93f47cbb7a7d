#pragma once

#include <nanobind/nanobind.h>

#include <atomic>
#include <chrono>
#include <string>

#include "Errors.h"
#include "talven/Monitor.h"

namespace talven::python
{

/// Follows a job for Python: calls progress(phase, done, count, bytes_each, note), and ends the job
/// when that returns False, a signal was caught or the time for a connection is over.
class CPyMonitor : public CMonitor
{
public:
    CPyMonitor();
    ~CPyMonitor() override;
    CPyMonitor(const CPyMonitor&) = delete;
    CPyMonitor& operator=(const CPyMonitor&) = delete;

    /// Before a job. With the GIL. \param rProgress  None: nobody wants to know
    void Start(const nanobind::object& rProgress, CCaught& rCaught);
    /// After it. With the GIL.
    void Finish() { m_aProgress.reset(); }
    /// From any thread.
    void Stop();

    void Begin(const std::string& strPhase, int iCount, std::uint64_t ulBytesEach) override;
    void Step(int iDone) override;
    void Note(const std::string& strText) override { m_strNote = strText; }
    bool IsStopped() const override { return m_bStopped; }
    void SetKeeping(bool bKeeping) override { m_bKeeping = bKeeping; }
    bool IsEnough() const override { return m_bEnough; }
    int GetStopFd() const override { return m_iStopFd; }

private:
    void mTell(int iDone);

    int m_iStopFd;
    nanobind::object m_aProgress;
    CCaught* m_pCaught = nullptr;
    std::atomic<bool> m_bStopped = false;
    bool m_bKeeping = false, m_bEnough = false;
    std::string m_strPhase, m_strNote;
    int m_iCount = 0;
    std::uint64_t m_ulBytesEach = 0;
    std::chrono::steady_clock::time_point m_tTold;
};

}  // namespace talven::python
