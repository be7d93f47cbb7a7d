#include "gpulib/Device/Host/Team.h"

#include <system_error>

#if defined(__SSE__)
#include <xmmintrin.h>
#endif

void FlushSmallNumbers()
{
#if defined(__SSE__)
    constexpr unsigned uiFlushResults = 0x8000, uiOperandsAreZero = 0x0040;
    _mm_setcsr(_mm_getcsr() | uiFlushResults | uiOperandsAreZero);
#endif
}

CTeam::CTeam(int iSize)
{
    try
    {
        for (int i = 1; i < iSize; ++i) m_vThreads.emplace_back([this, i] { mServe(i); });
    }
    catch (const std::system_error&)  // no more threads: fewer do the work
    {
    }
}

CTeam::~CTeam()
{
    {
        const std::lock_guard aLock(m_aMutex);
        m_bExit = true;
    }
    m_aStart.notify_all();
    for (std::thread& rThread : m_vThreads) rThread.join();
}

void CTeam::Run(const std::function<void(int)>& fPart)
{
    if (m_vThreads.empty()) return fPart(0);
    {
        const std::lock_guard aLock(m_aMutex);
        m_pfPart = &fPart;
        m_iBusy = static_cast<int>(m_vThreads.size());
        ++m_uiRound;
    }
    m_aStart.notify_all();
    fPart(0);
    std::unique_lock aLock(m_aMutex);
    m_aDone.wait(aLock, [this] { return m_iBusy == 0; });
}

void CTeam::mServe(int iPart)
{
    FlushSmallNumbers();
    unsigned uiSeen = 0;
    std::unique_lock aLock(m_aMutex);
    for (;;)
    {
        m_aStart.wait(aLock, [&] { return m_bExit || m_uiRound != uiSeen; });
        if (m_bExit) return;
        uiSeen = m_uiRound;
        const std::function<void(int)>* pfPart = m_pfPart;
        aLock.unlock();
        (*pfPart)(iPart);
        aLock.lock();
        if (--m_iBusy == 0) m_aDone.notify_one();
    }
}
