#include "Monitor.h"

#include <nanobind/stl/string.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace nb = nanobind;

namespace talven::python
{

CPyMonitor::CPyMonitor() : m_iStopFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (m_iStopFd == -1) throw std::system_error(errno, std::generic_category(), "eventfd");
}

CPyMonitor::~CPyMonitor()
{
    close(m_iStopFd);
}

void CPyMonitor::Start(const nb::object& rProgress, CCaught& rCaught)
{
    m_aProgress = rProgress;
    m_pCaught = &rCaught;
    m_bStopped = m_bKeeping = m_bEnough = false;
    eventfd_t ulOld = 0;
    (void)eventfd_read(m_iStopFd, &ulOld);
}

void CPyMonitor::Stop()
{
    m_bStopped = true;
    (void)eventfd_write(m_iStopFd, 1);
}

void CPyMonitor::Begin(const std::string& strPhase, int iCount, std::uint64_t ulBytesEach)
{
    m_strPhase = strPhase;
    m_strNote.clear();
    m_iCount = iCount;
    m_ulBytesEach = ulBytesEach;
    mTell(0);
}

void CPyMonitor::Step(int iDone)
{
    using namespace std::chrono_literals;
    if (iDone == m_iCount || m_bKeeping || std::chrono::steady_clock::now() - m_tTold > 50ms)
        mTell(iDone);
}

void CPyMonitor::mTell(int iDone)
{
    m_tTold = std::chrono::steady_clock::now();
    if (!m_aProgress.is_valid() || m_aProgress.is_none() || m_bStopped) return;
    bool bGoOn = true;
    const auto Tell = [&]
    {
        const nb::object aAnswer =
            m_aProgress(m_strPhase, iDone, m_iCount, m_ulBytesEach, m_strNote);
        bGoOn = !aAnswer.is(nb::handle(Py_False));
    };
    const bool bTold = m_pCaught->Guard(Tell);
    if (!bTold || (!bGoOn && !m_bKeeping && !m_bEnough))
        Stop();
    else if (!bGoOn)
        m_bEnough = true;
}

}  // namespace talven::python
