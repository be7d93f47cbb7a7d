#include "talven/PrivateServer.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string_view>
#include <thread>

#include "PrivateFolder.h"
#include "talven/Text.h"

extern char** environ;

namespace talven
{
namespace
{

using namespace std::chrono_literals;

constexpr const char* g_pcServer = "talven-server";

/// The path with links and relative parts resolved: the server runs in another directory.
std::string GetFullPath(const std::string& strPath)
{
    char* pcFull = realpath(strPath.c_str(), nullptr);
    std::string strFull = pcFull != nullptr ? pcFull : strPath;
    std::free(pcFull);
    return strFull;
}

bool IsProgram(const std::string& strPath)
{
    return access(strPath.c_str(), X_OK) == 0;
}

/// Environment for the server: ours without its settings and without HOME, so that it keeps no log.
std::vector<std::string> MakeEnvironment(const std::vector<std::string>& vstrSettings)
{
    std::vector<std::string> vstrAll = vstrSettings;
    for (char** ppcNext = environ; *ppcNext != nullptr; ++ppcNext)
    {
        const std::string_view strEntry = *ppcNext;
        const std::string_view strName = strEntry.substr(0, strEntry.find('=') + 1);
        bool bReplaced = strName == "HOME=" || strName == "TALVEN_BUSY_GPUS=" ||
                         strName == "TALVEN_IDLE_TIMEOUT=" || strName == "TALVEN_CORES=" ||
                         strName == "LISTEN_FDNAMES=";
        for (const std::string& strSetting : vstrSettings)
            bReplaced = bReplaced || strSetting.starts_with(strName);
        if (!bReplaced) vstrAll.emplace_back(strEntry);
    }
    return vstrAll;
}

std::vector<char*> MakePointers(std::vector<std::string>& rStrings)
{
    std::vector<char*> vpcAll;
    vpcAll.reserve(rStrings.size() + 1);
    for (std::string& rString : rStrings) vpcAll.push_back(rString.data());
    vpcAll.push_back(nullptr);
    return vpcAll;
}

/// Room for any process id behind it.
constexpr const char* g_pcListenPid = "LISTEN_PID=0000000000";
constexpr std::string_view g_strListenPid = "LISTEN_PID=";

/// What the child needs, made before the fork.
struct Child
{
    pid_t iParent;
    const char* pcDirectory;
    int iOutput, iListening, iLock;
    char* pcPid;  // in the environment
    char* const* ppcArgs;
    char* const* ppcEnvironment;
};

void WriteNumber(char* pcText, int iValue)
{
    int iDigits = 1;
    for (int iRest = iValue / 10; iRest > 0; iRest /= 10) ++iDigits;
    pcText[iDigits] = 0;
    for (; iDigits > 0; iValue /= 10) pcText[--iDigits] = static_cast<char>('0' + iValue % 10);
}

/// Nothing, the output and the socket as descriptors 0 to 3, and the lock behind them. Out of the
/// way first: ours may have these numbers, where the client was started without some of them.
bool ArrangeDescriptors(const Child& rChild)
{
    const int iNothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int aiSources[] = {iNothing, rChild.iOutput, rChild.iOutput, rChild.iListening};
    int aiAway[4];
    for (int i = 0; i < 4; ++i)
    {
        aiAway[i] = fcntl(aiSources[i], F_DUPFD_CLOEXEC, 4);
        if (aiAway[i] == -1) return false;
    }
    if (rChild.iLock != -1 && fcntl(rChild.iLock, F_DUPFD, 4) == -1) return false;
    for (int i = 0; i < 4; ++i)
        if (dup2(aiAway[i], i) == -1) return false;
    return true;
}

/// What the child does between fork and exec: system calls only.
[[noreturn]] void RunChild(const Child& rChild)
{
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != rChild.iParent) _exit(127);  // it died before the line above
    sigset_t aNone;
    sigemptyset(&aNone);
    sigprocmask(SIG_SETMASK, &aNone, nullptr);
    for (const int iSignal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGXFSZ}) signal(iSignal, SIG_DFL);
    if (chdir(rChild.pcDirectory) != 0 || !ArrangeDescriptors(rChild)) _exit(127);
    WriteNumber(rChild.pcPid, getpid());
    execve(rChild.ppcArgs[0], rChild.ppcArgs, rChild.ppcEnvironment);
    _exit(127);
}

}  // namespace

CPrivateServer::CPrivateServer() : m_pFolder(std::make_unique<CPrivateFolder>()) {}

CPrivateServer::~CPrivateServer()
{
    Stop();
}

std::string GetBusyDevices(int iDevices)
{
    // The server has a list of devices to leave alone, not a count.
    std::string strBusy;
    for (int i = iDevices; i < g_iMaxDevices; ++i)
        strBusy.append(strBusy.empty() ? "" : ",").append(std::to_string(i));
    return strBusy;
}

std::string FindServerProgram()
{
    if (const char* pcNamed = std::getenv("TALVEN_SERVER"); pcNamed != nullptr && *pcNamed != 0)
        return GetFullPath(pcNamed);

    std::vector<std::string> vstrFolders;
    std::array<char, 4096> acSelf{};
    const ssize_t iLength = readlink("/proc/self/exe", acSelf.data(), acSelf.size() - 1);
    if (iLength > 0)
    {
        std::string strFolder(acSelf.data(), static_cast<std::size_t>(iLength));
        strFolder.resize(strFolder.rfind('/') + 1);
        for (const char* pcWhere : {"", "../libexec/talven/", "../libexec/"})
            vstrFolders.push_back(strFolder + pcWhere);
    }
    const char* pcPath = std::getenv("PATH");
    std::istringstream aPath(pcPath != nullptr ? pcPath : "");
    for (std::string strFolder; std::getline(aPath, strFolder, ':');)
        if (!strFolder.empty()) vstrFolders.push_back(strFolder + "/");
    for (const std::string& rFolder : vstrFolders)
        if (IsProgram(rFolder + g_pcServer)) return GetFullPath(rFolder + g_pcServer);
    return {};
}

bool CPrivateServer::Start(const PrivateServerOptions& rOptions, CSession& rSession)
{
    int iSocket = -1;
    if (!Start(rOptions, iSocket)) return false;
    if (mGreet(iSocket, rSession)) return true;
    Stop();
    return false;
}

bool CPrivateServer::Start(const PrivateServerOptions& rOptions, int& rSocket)
{
    Stop();
    const std::string strProgram =
        rOptions.strProgram.empty() ? FindServerProgram() : rOptions.strProgram;
    if (strProgram.empty())
        return Fail(m_strError,
                    "cannot find talven-server (beside this program, in "
                    "../libexec/talven or in PATH; TALVEN_SERVER can name it)");
    if (!IsProgram(strProgram))
        return Fail(m_strError, strProgram + ": cannot run: " + std::strerror(errno));
    if (mStart(strProgram, rOptions, rSocket)) return true;
    Stop();
    return false;
}

bool CPrivateServer::mStart(const std::string& strProgram, const PrivateServerOptions& rOptions,
                            int& rSocket)
{
    if (!m_pFolder->Make(m_strError)) return false;
    CDescriptor aListening, aClient;
    if (!m_pFolder->OpenSockets(aListening, aClient))
        return Fail(m_strError,
                    m_pFolder->GetPath() + ": cannot make a socket: " + std::strerror(errno));
    const bool bSpawned = mSpawn(strProgram, rOptions, aListening.Get());
    m_pFolder->ForgetLock();
    aListening.Close();  // now a server that ends closes it, and the wait for it is over
    if (bSpawned) rSocket = aClient.Release();
    return bSpawned;
}

bool CPrivateServer::mSpawn(const std::string& strProgram, const PrivateServerOptions& rOptions,
                            int iListening)
{
    // The port is none: a server that does not take the socket says so instead of opening one.
    std::vector<std::string> vstrSettings = {g_pcListenPid, "LISTEN_FDS=1", "TALVEN_PORT=-1"};
    if (!rOptions.strBackend.empty())
        vstrSettings.push_back("TALVEN_BACKEND=" + rOptions.strBackend);
    if (rOptions.iDevices > 0)
        vstrSettings.push_back("TALVEN_BUSY_GPUS=" + GetBusyDevices(rOptions.iDevices));
    if (rOptions.iCores > 0)
        vstrSettings.push_back("TALVEN_CORES=" + std::to_string(rOptions.iCores));

    std::vector<std::string> vstrArgs = {strProgram};
    std::vector<std::string> vstrEnvironment = MakeEnvironment(vstrSettings);
    const std::vector<char*> vpcArgs = MakePointers(vstrArgs);
    const std::vector<char*> vpcEnvironment = MakePointers(vstrEnvironment);
    const Child aChild = {getpid(),
                          m_pFolder->GetPath().c_str(),
                          m_pFolder->GetOutput(),
                          iListening,
                          m_pFolder->GetLock(),
                          vstrEnvironment[0].data() + g_strListenPid.size(),
                          vpcArgs.data(),
                          vpcEnvironment.data()};
    m_iPid = fork();
    if (m_iPid == 0) RunChild(aChild);
    return m_iPid != -1 ||
           Fail(m_strError, Format("cannot start talven-server: %s", std::strerror(errno)));
}

/// The first answer comes when the server has its devices.
bool CPrivateServer::mGreet(int iSocket, CSession& rSession)
{
    std::uint64_t ulMemory = 0;
    if (rSession.Take(iSocket) && rSession.GetServerMemory(ulMemory)) return true;
    m_strError = rSession.GetError();
    if (rSession.WasInterrupted()) return false;
    rSession.Close();
    // A process that dies closes its sockets a little before it can be waited for.
    for (int i = 0; i < 100 && DescribeEnd().empty(); ++i) std::this_thread::sleep_for(10ms);
    if (DescribeEnd().empty()) return false;
    const std::string strReason = GetServerError();
    return Fail(m_strError,
                "talven-server did not start" + (strReason.empty() ? "" : ": " + strReason));
}

/// Leaves the ended process for Stop() to collect.
std::string CPrivateServer::DescribeEnd() const
{
    siginfo_t aInfo{};
    if (m_iPid == -1 ||
        waitid(P_PID, static_cast<id_t>(m_iPid), &aInfo, WEXITED | WNOHANG | WNOWAIT) != 0 ||
        aInfo.si_pid == 0)
        return {};
    return std::string(" (talven-server ended with ") +
           (aInfo.si_code == CLD_EXITED ? "exit code " : "signal ") +
           std::to_string(aInfo.si_status) + ")";
}

void CPrivateServer::Stop()
{
    if (m_iPid != -1)
    {
        // The server keeps nothing that an orderly end would save.
        kill(m_iPid, SIGKILL);
        while (waitpid(m_iPid, nullptr, 0) == -1 && errno == EINTR) continue;
        m_iPid = -1;
    }
    m_pFolder->Remove();
}

std::string CPrivateServer::GetServerError() const
{
    const std::vector<std::string> vstrErrors = mGetLines("Error: ");
    return vstrErrors.empty() ? std::string() : vstrErrors.back();
}

std::string CPrivateServer::GetServerInfo() const
{
    std::string strInfo;
    for (const std::string& rLine : mGetLines("Info: "))
        if (rLine.starts_with("Backend ") || rLine.ends_with(" devices available."))
            strInfo += (strInfo.empty() ? "" : " ") + rLine;
    return strInfo;
}

/// What follows the mark in the lines of the server that have it.
std::vector<std::string> CPrivateServer::mGetLines(std::string_view strMark) const
{
    std::istringstream aOutput(m_pFolder->ReadOutput());
    std::vector<std::string> vstrFound;
    for (std::string strLine; std::getline(aOutput, strLine);)
        if (const std::size_t tAt = strLine.find(strMark); tAt != std::string::npos)
            vstrFound.push_back(strLine.substr(tAt + strMark.size()));
    return vstrFound;
}

}  // namespace talven
