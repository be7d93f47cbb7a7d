#include "JobThread.h"

#include <nanobind/nanobind.h>
#include <signal.h>

#include <chrono>

namespace nb = nanobind;

namespace talven::python
{

CJobThread::~CJobThread()
{
    {
        const std::lock_guard aLock(m_aMutex);
        m_bEnd = true;
    }
    m_aWanted.notify_one();
    m_aThread.join();
}

void CJobThread::Run(const std::function<void()>& rWork, const std::function<void()>& rLook)
{
    using namespace std::chrono_literals;
    const nb::gil_scoped_release aFree;
    std::unique_lock aLock(m_aMutex);
    m_pWork = &rWork;
    m_aWanted.notify_one();
    while (!m_aDone.wait_for(aLock, 50ms, [this] { return m_pWork == nullptr; }))
    {
        aLock.unlock();  // the work may wait for the GIL
        {
            const nb::gil_scoped_acquire aHeld;
            rLook();
        }
        aLock.lock();
    }
}

void CJobThread::mRun()
{
    sigset_t aAll;  // signals are for the threads that Python knows
    sigfillset(&aAll);
    pthread_sigmask(SIG_BLOCK, &aAll, nullptr);
    std::unique_lock aLock(m_aMutex);
    while (true)
    {
        m_aWanted.wait(aLock, [this] { return m_bEnd || m_pWork != nullptr; });
        if (m_pWork == nullptr) return;
        aLock.unlock();
        (*m_pWork)();
        aLock.lock();
        m_pWork = nullptr;
        m_aDone.notify_one();
    }
}

}  // namespace talven::python
