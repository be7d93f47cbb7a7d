#pragma once

#include <nanobind/nanobind.h>

#include <unistd.h>

#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "Errors.h"
#include "JobThread.h"
#include "Monitor.h"
#include "talven/ServerLink.h"
#include "talven/Text.h"

namespace talven::python
{

/// A server and a thread of its own, for the jobs of Python, one at a time: whoever calls sees to
/// that.
class CPySession
{
public:
    explicit CPySession(ServerOptions aOptions) : m_aOptions(std::move(aOptions)) {}
    ~CPySession() { Close(); }
    CPySession(const CPySession&) = delete;
    CPySession& operator=(const CPySession&) = delete;

    /// \param dTimeout  seconds to wait for the clients before us; none: as long as it takes
    void Connect(const nanobind::object& rProgress, std::optional<double> dTimeout);
    /// Without the GIL or with it. A process that was forked does nothing.
    void Close();
    bool IsOpen() { return m_aLink.GetSession().IsOpen(); }
    const ServerOptions& GetOptions() const { return m_aOptions; }
    std::string GetServerInfo() const { return m_aLink.GetServerInfo(); }

    CServerLink& GetLink() { return m_aLink; }
    CMonitor& GetMonitor() { return m_aMonitor; }
    CCaught& GetCaught() { return m_aCaught; }

    /// Runs bool rWork(std::string& rError) in the thread of the session; raises what went wrong.
    /// With the GIL, which is free meanwhile.
    template <class F>
    void Do(const nanobind::object& rProgress, const F& rWork)
    {
        std::string strError;
        bool bDone = false;
        mRun(rProgress, [&] { bDone = rWork(strError); });
        if (!bDone) mRaise(strError);
    }
    /// The same of a step of a job, which knows what went wrong.
    template <class Job, class F>
    void DoStep(const nanobind::object& rProgress, const Job& rJob, const F& rStep)
    {
        Do(rProgress,
           [&](std::string& rError) { return rStep() || Fail(rError, rJob.GetError()); });
    }

private:
    void mRun(const nanobind::object& rProgress, const std::function<void()>& rWork);
    void mLook();
    [[noreturn]] void mRaise(const std::string& strError);

    ServerOptions m_aOptions;
    pid_t m_iPid = getpid();
    CCaught m_aCaught;
    CPyMonitor m_aMonitor;
    CServerLink m_aLink;
    std::optional<CJobThread> m_aThread;  // last: it uses the others
};

/// _core.Session and the jobs on it.
void BindJobs(nanobind::module_& rModule);

}  // namespace talven::python
