#include "server/Thread/GpuThread.h"

#include "gpulib/Device/DeviceCtx.h"
#include "server/Thread/CompareMain.h"
#include "server/Thread/ProjMain.h"
#include "server/Thread/ReconMain.h"
#include "server/Thread/TransformMain.h"

std::vector<std::unique_ptr<CGpuThread>> CGpuThread::m_vpThreads;
std::mutex CGpuThread::m_aMutexFinish;
std::condition_variable CGpuThread::m_aCondFinish;
int CGpuThread::m_iNumThreadsFinished = 0;
CJobMain* CGpuThread::m_pJob = nullptr;

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
    return mRunJob(CReconMain(), rReason);
}

bool CGpuThread::Project(std::string& rReason)
{
    return mRunJob(CProjMain(), rReason);
}

bool CGpuThread::Compare(bool bLog, std::string& rReason)
{
    return mRunJob(CCompareMain(bLog), rReason);
}

bool CGpuThread::Transform(bool bLog, std::string& rReason)
{
    return mRunJob(CTransformMain(bLog), rReason);
}

bool CGpuThread::mRunJob(CJobMain&& rJob, std::string& rReason)
{
    if (!rJob.Prepare(rReason)) return false;
    rJob.CalcSubsetDim(static_cast<int>(m_vpThreads.size()));
    m_pJob = &rJob;
    mRunAll(eRunJob);
    m_pJob = nullptr;
    rJob.FreeMemory();
    return rJob.Finish(rReason);
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
        if (iCmd == eRunJob) m_pJob->DoIt(m_iThreadID, m_iDeviceID);
        if (iCmd == eStop) mThreadExit();
        mThreadFinished();
    }
}
