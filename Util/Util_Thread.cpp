#include "Util/Util_Thread.h"

#include <chrono>
#include <system_error>

Util_Thread::~Util_Thread()
{
    if (m_aThread.joinable()) m_aThread.join();
}

bool Util_Thread::Start()
{
    if (IsAlive()) return true;
    if (m_aThread.joinable()) m_aThread.join();
    {
        const std::lock_guard aLock(m_aMutex);
        m_bStopCmd = false;
    }
    try
    {
        m_aThread = std::thread([this] { ThreadMain(); });
        return true;
    }
    catch (const std::system_error&)
    {
        mSetAlive(false);
        return false;
    }
}

void Util_Thread::Stop()
{
    const std::lock_guard aLock(m_aMutex);
    m_bStopCmd = true;
}

bool Util_Thread::WaitForExit(float fSeconds)
{
    if (fSeconds >= 0.0f)
        mYield(fSeconds);
    else if (m_aThread.joinable())
        m_aThread.join();
    return IsAlive();
}

bool Util_Thread::IsAlive()
{
    const std::lock_guard aLock(m_aMutex);
    return m_bIsAlive;
}

void Util_Thread::ThreadMain()
{
    mSetAlive(true);
    mThreadExit();
}

bool Util_Thread::mNeedStop()
{
    const std::lock_guard aLock(m_aMutex);
    return m_bStopCmd;
}

void Util_Thread::mSetAlive(bool bAlive)
{
    const std::lock_guard aLock(m_aMutex);
    m_bIsAlive = bAlive;
}

void Util_Thread::mYield(float fSeconds)
{
    // The fraction counts in thousandths that are added as microseconds: 1.5 s waits 1.0005 s.
    const int iSeconds = static_cast<int>(fSeconds);
    const int iThousandths = static_cast<int>(1000 * (fSeconds - static_cast<float>(iSeconds)));
    std::unique_lock aLock(m_aMutex);
    m_aCond.wait_for(aLock,
                     std::chrono::seconds(iSeconds) + std::chrono::microseconds(iThousandths));
}
