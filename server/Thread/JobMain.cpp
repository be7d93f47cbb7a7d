#include "server/Thread/JobMain.h"

#include <cstdio>
#include <new>

#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"
#include "server/Data/Recon/ProjData.h"

CJobMain::CJobMain(const char* pcName, bool bTimesEachShare)
    : m_pcName(pcName), m_bTimesEachShare(bTimesEachShare)
{
    m_aTime.Measure();
}

void CJobMain::CalcSubsetDim(int iWorkers)
{
    m_aBands.Calculate(static_cast<int>(CProjData::GetInstance()->GetY()), iWorkers);
}

void CJobMain::DoIt(int iThreadID, int iDeviceID)
{
    Util_Time aTime;
    aTime.Measure();
    try
    {
        TakeDeviceError();  // of former work of this thread
        if (!mDoShare(iThreadID, iDeviceID)) return Fail(TakeDeviceError());
    }
    catch (const std::bad_alloc&)
    {
        return Fail("out of memory");
    }
    if (m_bTimesEachShare)
        std::printf("%s time (s) %9.2f\n", m_pcName, double(aTime.GetElapsedSeconds()));
}

/// A worker without work leaves its device alone: it may be one that cannot be used.
bool CJobMain::mDoShare(int iThreadID, int iDeviceID)
{
    if (!m_aBands.HasBand(iThreadID)) return DeviceFail("no band for worker %d", iThreadID);
    const JobShare aShare = {m_aBands.GetStart(iThreadID), m_aBands.GetSize(iThreadID), iThreadID,
                             m_aBands.GetNumBands(), iDeviceID};
    return !mHasWork(aShare) || (GetBackend()->SelectDevice(iDeviceID) && mRun(aShare));
}

void CJobMain::Fail(const std::string& rReason)
{
    {
        const std::lock_guard aLock(m_aMutex);
        if (!m_strFailure) m_strFailure = rReason;
    }
    mRelease();
}

bool CJobMain::Finish(std::string& rReason)
{
    if (!m_bTimesEachShare)
        std::printf("%s Time (s): %9.3e\n", m_pcName, double(m_aTime.GetElapsedSeconds()));
    if (!m_strFailure) return true;
    mDiscard();
    rReason = *m_strFailure;
    return false;
}
