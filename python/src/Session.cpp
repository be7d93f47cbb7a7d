#include "Session.h"

#include <unistd.h>

namespace nb = nanobind;

namespace talven::python
{

void CPySession::Connect(const nb::object& rProgress, std::optional<double> dTimeout)
{
    m_aOptions.dWait = dTimeout;
    const auto Connect = [this](std::string& rError)
    { return m_aLink.Connect(m_aOptions, m_aMonitor) || Fail(rError, m_aLink.GetError()); };
    Do(rProgress, Connect);
}

void CPySession::Close()
{
    if (getpid() != m_iPid) return;  // the server is our parent's, and so is the thread
    m_aLink.Close();
    m_aThread.reset();
}

void CPySession::mRun(const nb::object& rProgress, const std::function<void()>& rWork)
{
    if (getpid() != m_iPid) Raise("RuntimeError", "a session does not go through a fork");
    if (!m_aThread) m_aThread.emplace();
    m_aMonitor.Start(rProgress, m_aCaught);
    m_aThread->Run(rWork, [this] { mLook(); });
    m_aMonitor.Finish();
    m_aCaught.Rethrow();
}

void CPySession::mLook()
{
    if (PyErr_CheckSignals() != 0)
    {
        m_aCaught.Keep(std::make_exception_ptr(nb::python_error()));
        m_aMonitor.Stop();
    }
}

void CPySession::mRaise(const std::string& strError)
{
    CSession& rSession = m_aLink.GetSession();
    if (m_aMonitor.IsStopped()) Raise("Error", "stopped by the progress callback");
    if (m_aLink.WasBusy()) Raise("ServerBusy", strError);
    if (rSession.WasRefused()) Raise("Refused", strError);
    Raise(rSession.IsOpen() ? "Error" : "ConnectionLost", strError);
}

}  // namespace talven::python
