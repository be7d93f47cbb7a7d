#include "server/Thread/GpuThread.h"

#include <cstdio>
#include <new>

#include "Util/Util_Time.h"
#include "gpulib/Device/DeviceCtx.h"
#include "server/Data/Recon/ProjData.h"
#include "server/Thread/CompareMain.h"
#include "server/Thread/JobStatus.h"
#include "server/Thread/ProjMain.h"
#include "server/Thread/ReconMain.h"
#include "server/Thread/TransformMain.h"

std::vector<std::unique_ptr<CGpuThread>> CGpuThread::m_vpThreads;
std::mutex CGpuThread::m_aMutexFinish;
std::condition_variable CGpuThread::m_aCondFinish;
int CGpuThread::m_iNumThreadsFinished = 0;
bool CGpuThread::m_bCompareLog = false;
bool CGpuThread::m_bTransformLog = false;

CGpuThread::~CGpuThread()
{
    WaitForExit(-1.0f);
}

bool CGpuThread::CreateThreads(int iThreads, const int* piDeviceIDs)
{
    for (int i = 0; i < iThreads; ++i)
    {
        auto pThread = std::make_unique<CGpuThread>();
        pThread->SetThreadID(i);
        pThread->SetDeviceID(piDeviceIDs[i]);
        if (!pThread->Start())
        {
            StopAll();
            DeleteThreads();
            return false;
        }
        m_vpThreads.push_back(std::move(pThread));
    }
    return true;
}

bool CGpuThread::Reconstruct(std::string& rReason)
{
    CJobStatus::Reset();
    if (!CReconMain::Validate(rReason)) return false;
    CProjData::GetInstance()->DetRangeX();
    CReconMain::CalcSubsetDim(static_cast<int>(m_vpThreads.size()));
    CReconMain::Prepare();
    mRunAll(eReconstruct);
    CReconMain::FreeMemory();
    if (mHasSucceeded(rReason)) return true;
    CReconMain::Discard();
    return false;
}

bool CGpuThread::Project(std::string& rReason)
{
    CJobStatus::Reset();
    if (!CProjMain::Validate(rReason)) return false;
    CProjMain::CalcSubsetDim(static_cast<int>(m_vpThreads.size()));
    mRunAll(eProject);
    CProjMain::FreeMemory();
    return mHasSucceeded(rReason);
}

bool CGpuThread::Compare(bool bLog, std::string& rReason)
{
    Util_Time aTime;
    aTime.Measure();
    m_bCompareLog = bLog;
    CJobStatus::Reset();
    if (!CCompareMain::Validate(bLog, rReason)) return false;
    CCompareMain::CalcSubsetDim(static_cast<int>(m_vpThreads.size()));
    mRunAll(eCompare);
    CCompareMain::FreeMemory();
    std::printf("Compare Time (s): %9.3e\n", double(aTime.GetElapsedSeconds()));
    return mHasSucceeded(rReason);
}

bool CGpuThread::Transform(bool bLog, std::string& rReason)
{
    Util_Time aTime;
    aTime.Measure();
    m_bTransformLog = bLog;
    CJobStatus::Reset();
    if (!CTransformMain::Validate(bLog, rReason)) return false;
    CTransformMain::CalcSubsetDim(static_cast<int>(m_vpThreads.size()));
    mRunAll(eTransform);
    CTransformMain::FreeMemory();
    std::printf("Transform Time (s): %9.3e\n", double(aTime.GetElapsedSeconds()));
    return mHasSucceeded(rReason);
}

bool CGpuThread::mHasSucceeded(std::string& rReason)
{
    if (!CJobStatus::HasFailed()) return true;
    rReason = CJobStatus::GetReason();
    return false;
}

void CGpuThread::StopAll()
{
    mRunAll(eStop);
}

void CGpuThread::DeleteThreads()
{
    for (const auto& pThread : m_vpThreads)
    {
        pThread->Stop();
        pThread->WaitForExit(-1.0f);
    }
    m_vpThreads.clear();
}

void CGpuThread::mRunAll(int iCmd)
{
    {
        const std::lock_guard aLock(m_aMutexFinish);
        m_iNumThreadsFinished = 0;
    }
    for (const auto& pThread : m_vpThreads) pThread->SetCmd(iCmd);
    std::unique_lock aLock(m_aMutexFinish);
    m_aCondFinish.wait(
        aLock, [] { return m_iNumThreadsFinished == static_cast<int>(m_vpThreads.size()); });
}

void CGpuThread::mThreadFinished()
{
    const std::lock_guard aLock(m_aMutexFinish);
    ++m_iNumThreadsFinished;
    m_aCondFinish.notify_one();  // under the lock: the waiter may end the process after it
}

void CGpuThread::SetCmd(int iCmd)
{
    std::unique_lock aLock(m_aMutex);
    m_aCond.wait(aLock, [this] { return m_iCmd == eNone; });
    m_iCmd = iCmd;
    m_aCond.notify_all();
}

int CGpuThread::mWaitForCmd()
{
    std::unique_lock aLock(m_aMutex);
    m_aCond.wait(aLock, [this] { return m_iCmd != eNone; });
    const int iCmd = m_iCmd;
    m_iCmd = eNone;
    m_aCond.notify_all();
    return iCmd;
}

void CGpuThread::ThreadMain()
{
    mSetAlive(true);
    CDeviceCtx aDeviceCtx;
    aDeviceCtx.SetDevice(m_iDeviceID);
    int iCmd = eNone;
    while (iCmd != eStop)
    {
        iCmd = mWaitForCmd();
        mDoCmd(iCmd);
        if (iCmd == eStop) mThreadExit();
        mThreadFinished();
    }
}

void CGpuThread::mDoCmd(int iCmd)
{
    try
    {
        if (iCmd == eReconstruct) mReconstruct();
        if (iCmd == eProject) mProject();
        if (iCmd == eCompare) mCompare();
        if (iCmd == eTransform) mTransform();
    }
    catch (const std::bad_alloc&)
    {
        CJobStatus::Fail("out of memory");
    }
}

void CGpuThread::mReconstruct()
{
    CReconMain aReconMain;
    aReconMain.DoIt(m_iThreadID, m_iDeviceID);
}

void CGpuThread::mProject()
{
    CProjMain aProjMain;
    aProjMain.DoIt(m_iThreadID);
}

void CGpuThread::mCompare()
{
    CCompareMain aCompareMain;
    aCompareMain.DoIt(m_bCompareLog, m_iThreadID);
}

void CGpuThread::mTransform()
{
    CTransformMain aTransformMain;
    aTransformMain.DoIt(m_bTransformLog, m_iThreadID);
}
