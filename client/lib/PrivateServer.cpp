#include "talven/PrivateServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string_view>
#include <thread>

#include "talven/Text.h"

extern char** environ;

namespace talven
{
namespace
{

using namespace std::chrono_literals;

constexpr const char* g_pcServer = "talven-server";

/// A port that nobody listens on now. Somebody may take it before the server does; the caller then
/// tries another.
std::uint16_t FindFreePort()
{
    const int iSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in aAddress{};
    aAddress.sin_family = AF_INET;
    aAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t iBytes = sizeof(aAddress);
    std::uint16_t usPort = 0;
    if (iSocket != -1 && bind(iSocket, reinterpret_cast<const sockaddr*>(&aAddress), iBytes) == 0 &&
        getsockname(iSocket, reinterpret_cast<sockaddr*>(&aAddress), &iBytes) == 0)
        usPort = ntohs(aAddress.sin_port);
    if (iSocket != -1) close(iSocket);
    return usPort;
}

/// The path with links and relative parts resolved: the server runs in another directory.
std::string GetFullPath(const std::string& strPath)
{
    char* pcFull = realpath(strPath.c_str(), nullptr);
    const std::string strFull = pcFull != nullptr ? pcFull : strPath;
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
                         strName == "TALVEN_IDLE_TIMEOUT=";
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

/// What the child does between fork and exec: system calls only.
[[noreturn]] void RunChild(pid_t iParent, const char* pcDirectory, int iOutput,
                           char* const* ppcArgs, char* const* ppcEnvironment)
{
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != iParent) _exit(127);  // it died before the line above
    sigset_t aNone;
    sigemptyset(&aNone);
    sigprocmask(SIG_SETMASK, &aNone, nullptr);
    for (const int iSignal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGXFSZ}) signal(iSignal, SIG_DFL);
    const int iNothing = open("/dev/null", O_RDONLY);
    if (chdir(pcDirectory) != 0 || iNothing == -1 || dup2(iNothing, 0) == -1 ||
        dup2(iOutput, 1) == -1 || dup2(iOutput, 2) == -1)
        _exit(127);
    execve(ppcArgs[0], ppcArgs, ppcEnvironment);
    _exit(127);
}

}  // namespace

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
    Stop();
    const std::string strProgram =
        rOptions.strProgram.empty() ? FindServerProgram() : rOptions.strProgram;
    if (strProgram.empty())
        return Fail(m_strError,
                    "cannot find talven-server (beside this program, in "
                    "../libexec/talven or in PATH; TALVEN_SERVER can name it)");
    if (!IsProgram(strProgram))
        return Fail(m_strError, strProgram + ": cannot run: " + std::strerror(errno));
    for (int iTry = 0; iTry < 3; ++iTry)
    {
        if (mStartOnce(strProgram, rOptions, rSession)) return true;
        const bool bPortTaken = GetServerError() == "Unable to create server socket.";
        Stop();
        if (!bPortTaken) return false;
    }
    return false;
}

bool CPrivateServer::mStartOnce(const std::string& strProgram, const PrivateServerOptions& rOptions,
                                CSession& rSession)
{
    const std::uint16_t usPort = FindFreePort();
    if (usPort == 0) return Fail(m_strError, "no free port on the loopback interface");
    std::vector<std::string> vstrSettings = {"TALVEN_PORT=" + std::to_string(usPort),
                                             "TALVEN_BIND=127.0.0.1"};
    if (!rOptions.strBackend.empty())
        vstrSettings.push_back("TALVEN_BACKEND=" + rOptions.strBackend);
    if (rOptions.iDevices > 0)
        vstrSettings.push_back("TALVEN_BUSY_GPUS=" + GetBusyDevices(rOptions.iDevices));
    return mSpawn(strProgram, vstrSettings) && mConnect(usPort, rSession);
}

bool CPrivateServer::mSpawn(const std::string& strProgram,
                            const std::vector<std::string>& vstrSettings)
{
    const char* pcTemporary = std::getenv("TMPDIR");
    m_strDirectory =
        std::string(pcTemporary != nullptr && *pcTemporary != 0 ? pcTemporary : "/tmp") +
        "/talven-XXXXXX";
    if (mkdtemp(m_strDirectory.data()) == nullptr)
    {
        m_strError = m_strDirectory + ": cannot make a directory: " + std::strerror(errno);
        m_strDirectory.clear();
        return false;
    }
    m_strOutput = m_strDirectory + "/output.txt";
    const int iOutput = open(m_strOutput.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (iOutput == -1)
        return Fail(m_strError, m_strOutput + ": cannot write: " + std::strerror(errno));

    std::vector<std::string> vstrArgs = {strProgram};
    std::vector<std::string> vstrEnvironment = MakeEnvironment(vstrSettings);
    const std::vector<char*> vpcArgs = MakePointers(vstrArgs);
    const std::vector<char*> vpcEnvironment = MakePointers(vstrEnvironment);
    const pid_t iParent = getpid();
    m_iPid = fork();
    if (m_iPid == 0)
        RunChild(iParent, m_strDirectory.c_str(), iOutput, vpcArgs.data(), vpcEnvironment.data());
    close(iOutput);
    return m_iPid != -1 ||
           Fail(m_strError, Format("cannot start talven-server: %s", std::strerror(errno)));
}

/// Tries until the server listens; gives up when it has ended or after half a minute.
bool CPrivateServer::mConnect(std::uint16_t usPort, CSession& rSession)
{
    const auto tDeadline = std::chrono::steady_clock::now() + 30s;
    while (true)
    {
        const bool bOpen = rSession.Open("127.0.0.1", usPort, 5s);
        if (mHasEnded())  // whoever answered on the port was not our server
        {
            rSession.Close();
            const std::string strReason = GetServerError();
            return Fail(m_strError, "talven-server did not start" +
                                        (strReason.empty() ? "" : ": " + strReason));
        }
        if (bOpen) return true;
        if (rSession.WasInterrupted() || std::chrono::steady_clock::now() > tDeadline)
            return Fail(m_strError, rSession.GetError());
        std::this_thread::sleep_for(5ms);
    }
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
    if (!m_strDirectory.empty())
    {
        unlink(m_strOutput.c_str());
        rmdir(m_strDirectory.c_str());
        m_strDirectory.clear();
    }
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
    std::ifstream aOutput(m_strOutput);
    std::vector<std::string> vstrFound;
    for (std::string strLine; std::getline(aOutput, strLine);)
        if (const std::size_t tAt = strLine.find(strMark); tAt != std::string::npos)
            vstrFound.push_back(strLine.substr(tAt + strMark.size()));
    return vstrFound;
}

}  // namespace talven
