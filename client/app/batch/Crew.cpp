#include "Crew.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "batch/TaskFiles.h"

extern char** environ;

namespace talven
{
namespace
{

constexpr int g_iAttempts = 3;  // of a task, and of a server in a row

std::string ReadAll(int iFile)
{
    std::array<char, 4096> acText;
    const ssize_t iGot = pread(iFile, acText.data(), acText.size(), 0);
    return std::string(Trim({acText.data(), static_cast<std::size_t>(std::max<ssize_t>(iGot, 0))}));
}

/// Starts this program again. \return -1 when it cannot
pid_t Spawn(std::vector<std::string> vstrArgs, int iErrors)
{
    std::vector<char*> vpcArgs;
    for (std::string& rArg : vstrArgs) vpcArgs.push_back(rArg.data());
    vpcArgs.push_back(nullptr);
    posix_spawn_file_actions_t aActions;
    posix_spawn_file_actions_init(&aActions);
    posix_spawn_file_actions_addopen(&aActions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&aActions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&aActions, iErrors, 2);
    posix_spawnattr_t aAttributes;
    posix_spawnattr_init(&aAttributes);
    posix_spawnattr_setflags(&aAttributes, POSIX_SPAWN_SETPGROUP);  // Ctrl-C comes through us
    pid_t iChild = -1;
    const int iError =
        posix_spawn(&iChild, "/proc/self/exe", &aActions, &aAttributes, vpcArgs.data(), environ);
    posix_spawnattr_destroy(&aAttributes);
    posix_spawn_file_actions_destroy(&aActions);
    errno = iError;
    return iError == 0 ? iChild : -1;
}

}  // namespace

CCrew::~CCrew()
{
    mStopAll();
}

bool CCrew::Run()
{
    const std::vector<TaskState> aStates = ReadStates(m_rManifest);
    for (std::size_t i = 0; i < aStates.size(); ++i)
        if (!aStates[i].bDone) m_aWaiting.push_back(static_cast<int>(i));
    const int iTasks = static_cast<int>(m_aWaiting.size());
    m_viAttempts.assign(aStates.size(), 0);
    m_apFailedAt.assign(aStates.size(), nullptr);
    m_rReport.Begin("tasks", std::max(iTasks, 1), 0);
    while (m_iDone + m_iFailed < iTasks && !m_rReport.IsStopped())
    {
        for (Place& rPlace : m_aPlaces)
        {
            const auto pTask = mFindTask(rPlace);
            if (rPlace.iChild != -1 || pTask == m_aWaiting.end()) continue;
            const int iTask = *pTask;
            m_aWaiting.erase(pTask);
            if (!mStart(rPlace, iTask)) return false;
        }
        if (m_iRunning == 0) break;  // nobody is left to work
        pollfd aStop = {m_rReport.GetStopFd(), POLLIN, 0};
        poll(&aStop, 1, 50);
        for (Place& rPlace : m_aPlaces)
            if (rPlace.iChild != -1) mReap(rPlace);
    }
    mStopAll();
    m_rReport.End();
    if (m_rReport.IsStopped())
    {
        m_bRetry = true;
        return Fail(m_strError, "interrupted");
    }
    m_bRetry = !m_bHopeless;
    return m_iDone == iTasks ||
           Fail(m_strError,
                Format("%d of %d tasks not done, the last: ", iTasks - m_iDone, iTasks) +
                    m_strLastError);
}

/// The first task that may do at a place: not one that has just failed there, when there is another
/// place.
std::deque<int>::iterator CCrew::mFindTask(const Place& rPlace)
{
    const auto MayWork = [](const Place& rAny) { return rAny.iInARow < g_iAttempts; };
    if (!MayWork(rPlace)) return m_aWaiting.end();
    const bool bAlone = std::ranges::count_if(m_aPlaces, MayWork) == 1;
    return std::ranges::find_if(
        m_aWaiting, [&](int iTask)
        { return bAlone || m_apFailedAt[static_cast<std::size_t>(iTask)] != &rPlace; });
}

bool CCrew::mStart(Place& rPlace, int iTask)
{
    rPlace.iTask = iTask;
    std::vector<std::string> vstrArgs = {
        "talven",  "batch",        "run", m_rManifest.GetPath(), std::to_string(rPlace.iTask),
        "--quiet", "--with-parent"};
    vstrArgs.insert(vstrArgs.end(), rPlace.vstrOptions.begin(), rPlace.vstrOptions.end());
    rPlace.iErrors = memfd_create("talven-errors", MFD_CLOEXEC);
    if (rPlace.iErrors != -1) rPlace.iChild = Spawn(vstrArgs, rPlace.iErrors);
    if (rPlace.iChild == -1)
        return Fail(m_strError, std::string("cannot start a task: ") + std::strerror(errno));
    ++m_iRunning;
    ++m_viAttempts[static_cast<std::size_t>(rPlace.iTask)];
    mShow();
    return true;
}

/// Sees whether a child has ended.
void CCrew::mReap(Place& rPlace)
{
    int iStatus = 0;
    if (waitpid(rPlace.iChild, &iStatus, WNOHANG) != rPlace.iChild) return;
    rPlace.iChild = -1;
    mEnd(rPlace, WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : g_iExitRetry);
    close(rPlace.iErrors);
}

void CCrew::mEnd(Place& rPlace, int iExit)
{
    --m_iRunning;
    if (iExit == 0)
    {
        ++m_iDone;
        rPlace.iInARow = 0;
        return mShow();
    }
    m_apFailedAt[static_cast<std::size_t>(rPlace.iTask)] = &rPlace;
    const std::string strError = ReadAll(rPlace.iErrors);
    m_strLastError = strError.starts_with("talven: ") ? strError.substr(8) : strError;
    m_rReport.PrintLine(Format("task %d: ", rPlace.iTask) + m_strLastError);
    if (iExit == g_iExitRetry) ++rPlace.iInARow;
    m_bHopeless = m_bHopeless || iExit != g_iExitRetry;
    if (iExit == g_iExitRetry && m_viAttempts[static_cast<std::size_t>(rPlace.iTask)] < g_iAttempts)
        m_aWaiting.push_back(rPlace.iTask);
    else
        ++m_iFailed;
    mShow();
}

void CCrew::mShow()
{
    m_rReport.Note(Format("%d running, %d failed", m_iRunning, m_iFailed));
    m_rReport.Step(m_iDone);
}

void CCrew::mStopAll()
{
    for (const Place& rPlace : m_aPlaces)
        if (rPlace.iChild != -1) kill(rPlace.iChild, SIGTERM);
    for (Place& rPlace : m_aPlaces)
    {
        if (rPlace.iChild == -1) continue;
        while (waitpid(rPlace.iChild, nullptr, 0) == -1 && errno == EINTR) continue;
        close(rPlace.iErrors);
        rPlace.iChild = -1;
    }
}

}  // namespace talven
