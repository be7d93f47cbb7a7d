#include "TaskRun.h"

#include <filesystem>

#include "batch/BatchJob.h"
#include "batch/TaskFiles.h"

namespace talven
{

bool CTaskRun::Run()
{
    m_bWasDone = mFindResult();
    if (m_bWasDone || (mCheckInputs() && mMakePlace() && mReconstruct())) return true;
    // Two attempts at once do no harm: what the other one made is as good.
    if (mFindResult()) return true;
    NoteFailure(m_rManifest, m_iTask, m_bRetry ? g_iExitRetry : g_iExitFailure, m_strError);
    return false;
}

bool CTaskRun::mFindResult()
{
    if (FindResult(m_rManifest, m_rTask.strOutput, m_iTask, m_aResult)) return true;
    const std::string& rWhole = m_rManifest.GetVolume(m_rTask).strOutput;
    return m_rManifest.IsPart(m_rTask) && FindResult(m_rManifest, rWhole, -1, m_aResult);
}

bool CTaskRun::mCheckInputs()
{
    for (const InputStamp& rStamp : m_rManifest.GetVolume(m_rTask).aInputs)
        if (!CheckStamp(rStamp, m_strError)) return false;
    return true;
}

bool CTaskRun::mMakePlace()
{
    const std::filesystem::path aFolder = std::filesystem::path(m_rTask.strOutput).parent_path();
    std::error_code aError;
    std::filesystem::create_directories(aFolder, aError);
    return !aError ||
           Fail(m_strError, aFolder.string() + ": cannot make a folder: " + aError.message());
}

bool CTaskRun::mReconstruct()
{
    const BatchVolume& rVolume = m_rManifest.GetVolume(m_rTask);
    const bool bPart = m_rManifest.IsPart(m_rTask);
    std::vector<std::string> vstrMore;
    if (bPart)
        vstrMore = {Format("--rows=%d:%d", m_rTask.aRows.iFirst, m_rTask.aRows.iEnd),
                    "--output=" + m_rTask.strOutput};
    CBatchJob aJob;
    if (!aJob.Parse(rVolume.aOptions, bPart, vstrMore)) return Fail(m_strError, aJob.GetError());
    CReconstructCommand& rJob = aJob.GetCommand();
    rJob.SetOptions(m_rServer, m_rReport);
    if (!rJob.Open()) return Fail(m_strError, rJob.GetError());
    if (Hash(std::as_bytes(rJob.GetSeries().GetAngles())) != rVolume.strAngles)
        return Fail(m_strError, "the angles have changed since the batch was planned");
    if (!rJob.Run())
    {
        m_bRetry = rJob.MayRetry();
        return Fail(m_strError, rJob.GetError());
    }
    return mWriteResult(rJob.GetResult());
}

bool CTaskRun::mWriteResult(const Json& rMade)
{
    const std::vector<TaskState> aStates = ReadStates(m_rManifest);
    m_aResult = {{"file", m_rTask.strOutput},
                 {"rows", {m_rTask.aRows.iFirst, m_rTask.aRows.iEnd}},
                 {"host", GetHostName()},
                 {"attempt", aStates[static_cast<std::size_t>(m_iTask)].iFailures + 1},
                 {"finished", GetTimeNow()},
                 {"seconds", m_aWatch.GetSeconds()}};
    for (const char* pcName :
         {"volume", "halo", "iterations", "rfactors", "rfactor_sums", "view_residuals"})
        if (rMade.contains(pcName)) m_aResult[pcName] = rMade[pcName];
    return WriteResult(m_rManifest, m_rTask.strOutput, m_iTask, m_aResult, m_strError);
}

}  // namespace talven
