#include "tests/wire/ServerProcess.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <thread>

using namespace std::chrono_literals;
namespace fs = std::filesystem;

std::string ReadText(const fs::path& rPath)
{
    std::ifstream aFile(rPath);
    return {std::istreambuf_iterator<char>(aFile), {}};
}

int CServerProcess::FindFreePort()
{
    const int iSocket = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in aAddress = {};
    aAddress.sin_family = AF_INET;
    aAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t tSize = sizeof aAddress;
    bind(iSocket, reinterpret_cast<sockaddr*>(&aAddress), tSize);
    getsockname(iSocket, reinterpret_cast<sockaddr*>(&aAddress), &tSize);
    close(iSocket);
    return ntohs(aAddress.sin_port);
}

void CServerProcess::Start(const Environment& rExtra, const std::string& strConfig,
                           const std::function<void()>& fInChild)
{
    char acDir[] = "/tmp/talven-wire-XXXXXX";
    m_aHome = mkdtemp(acDir);
    fs::create_directory(m_aHome / "temp");
    if (!strConfig.empty()) std::ofstream(m_aHome / "config.gpu") << strConfig;
    Environment aEnvironment = {{"HOME", m_aHome.string()},
                                {"PATH", "/usr/bin:/bin"},
                                {"TALVEN_BACKEND", "host"},
                                {"TALVEN_BIND", "127.0.0.1"},
                                {"TALVEN_BUSY_GPUS", "2,3,4,5,6,7,8,9,10,11,12,13,14,15"},
                                {"TALVEN_PORT", std::to_string(FindFreePort())}};
    for (const char* pcKept : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"})
        if (const char* pcValue = std::getenv(pcKept)) aEnvironment[pcKept] = pcValue;
    for (const auto& [strKey, strValue] : rExtra) aEnvironment[strKey] = strValue;
    m_iPort = std::atoi(aEnvironment["TALVEN_PORT"].c_str());
    const std::string strOutput = (m_aHome / "output.txt").string();

    m_iCode = -1;
    m_iPid = fork();
    if (m_iPid != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int iOutput = open(strOutput.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    dup2(iOutput, 1);
    dup2(iOutput, 2);
    if (chdir(m_aHome.c_str()) != 0) _exit(126);
    if (fInChild) fInChild();
    // What this program has open is no business of the server.
    const bool bHandOver = m_iHandedOver != -1 && dup2(m_iHandedOver, 3) == 3;
    close_range(bHandOver ? 4 : 3, ~0u, 0);
    clearenv();
    if (bHandOver) setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
    if (bHandOver) setenv("LISTEN_FDS", "1", 1);
    for (const auto& [strKey, strValue] : aEnvironment)
        if (!strValue.empty()) setenv(strKey.c_str(), strValue.c_str(), 1);
    execl(TALVEN_SERVER_PATH, "talven-server", nullptr);
    _exit(127);
}

CServerProcess::~CServerProcess()
{
    for (const int iSignal : {SIGTERM, SIGKILL})
        if (IsRunning() && kill(m_iPid, iSignal) == 0) WaitForEnd(2);
    std::error_code aIgnored;
    fs::remove_all(m_aHome, aIgnored);
}

int CServerProcess::WaitForEnd(double dSeconds)
{
    for (int iStatus = 0; m_iCode == -1; dSeconds -= 0.01, std::this_thread::sleep_for(10ms))
    {
        if (waitpid(m_iPid, &iStatus, WNOHANG) == m_iPid)
            m_iCode = WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : 128 + WTERMSIG(iStatus);
        if (m_iCode != -1 || dSeconds <= 0) break;
    }
    return m_iCode;
}

std::string CServerProcess::GetOutput() const
{
    return ReadText(m_aHome / "output.txt");
}

std::string CServerProcess::GetLog() const
{
    std::string strAll;
    for (const auto& rEntry : fs::directory_iterator(m_aHome / "temp"))
        strAll += ReadText(rEntry.path());
    return strAll;
}

int CServerProcess::Count(const std::string& strText) const
{
    const std::string strOutput = GetOutput();
    int iCount = 0;
    for (std::size_t t = 0; (t = strOutput.find(strText, t)) != std::string::npos; ++iCount) ++t;
    return iCount;
}

bool CServerProcess::WaitFor(const std::string& strText, int iTimes) const
{
    for (int i = 0; i < 500 && Count(strText) < iTimes; ++i) std::this_thread::sleep_for(20ms);
    return Count(strText) >= iTimes;
}
