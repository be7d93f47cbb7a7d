#include "Util/TomoVolume.h"

#include "Util/Util_Volume.h"

void CTomoVolume::Set(Util_Volume* pVolume, int iNumDevices)
{
    const std::lock_guard aLock(m_aMutex);
    m_pVolume = pVolume;
    m_piSize = pVolume ? pVolume->GetSize() : nullptr;
    m_iNumDevices = iNumDevices;
    m_iDoneDevices = 0;
    m_bAllDone = false;
    m_bAborted = false;
    m_iArrived = 0;
}

void CTomoVolume::NotifyDone()
{
    const std::lock_guard aLock(m_aMutex);
    m_bAllDone = ++m_iDoneDevices == m_iNumDevices;
    if (!m_bAllDone) return;
    m_iDoneDevices = 0;
    m_aCond.notify_all();
}

void CTomoVolume::WaitAllDone()
{
    std::unique_lock aLock(m_aMutex);
    if (!m_bAllDone) m_aCond.wait(aLock);
}

bool CTomoVolume::Rendezvous()
{
    std::unique_lock aLock(m_aMutex);
    if (m_bAborted) return false;
    if (++m_iArrived >= m_iNumDevices)
    {
        m_iArrived = 0;
        ++m_ulGeneration;
        m_aCond.notify_all();
        return true;
    }
    const unsigned long ulGeneration = m_ulGeneration;
    m_aCond.wait(aLock, [&] { return m_ulGeneration != ulGeneration || m_bAborted; });
    return m_ulGeneration != ulGeneration;
}

void CTomoVolume::Abort()
{
    const std::lock_guard aLock(m_aMutex);
    m_bAborted = true;
    m_aCond.notify_all();
}

void CTomoVolume::Reset()
{
    const std::lock_guard aLock(m_aMutex);
    m_iArrived = 0;
    m_bAborted = false;
    m_iDoneDevices = 0;
    m_bAllDone = false;
}
