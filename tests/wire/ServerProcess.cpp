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
#include <sstream>
#include <thread>

using namespace std::chrono_literals;
namespace fs = std::filesystem;

int CountIn(const std::string& strText, const std::string& strWanted)
{
    int iCount = 0;
    for (std::size_t t = strText.find(strWanted); t != std::string::npos;
         t = strText.find(strWanted, t + strWanted.size()))
        ++iCount;
    return iCount;
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

    m_iPort = FindFreePort();
    Environment aEnvironment = {{"HOME", m_aHome.string()},
                                {"PATH", "/usr/bin:/bin"},
                                {"TALVEN_BACKEND", "host"},
                                {"TALVEN_BIND", "127.0.0.1"},
                                {"TALVEN_PORT", std::to_string(m_iPort)}};
    for (const char* pcKept : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"})
        if (const char* pcValue = std::getenv(pcKept)) aEnvironment[pcKept] = pcValue;
    for (const auto& [strKey, strValue] : rExtra) aEnvironment[strKey] = strValue;
    if (rExtra.count("TALVEN_PORT") != 0) m_iPort = std::atoi(rExtra.at("TALVEN_PORT").c_str());
    std::vector<std::string> vstrEnvironment;
    for (const auto& [strKey, strValue] : aEnvironment)
        if (!strValue.empty()) vstrEnvironment.push_back(strKey + "=" + strValue);
    std::vector<char*> vpcEnvironment;
    for (std::string& rEntry : vstrEnvironment) vpcEnvironment.push_back(rEntry.data());
    vpcEnvironment.push_back(nullptr);
    const std::string strOutput = (m_aHome / "output.txt").string();
    const std::string strProgram = m_strProgram.empty() ? TALVEN_SERVER_PATH : m_strProgram;
    char* apcArguments[] = {const_cast<char*>("talven-server"), nullptr};

    m_iPid = fork();
    if (m_iPid != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int iOutput = open(strOutput.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    dup2(iOutput, 1);
    dup2(iOutput, 2);
    if (chdir(m_aHome.c_str()) != 0) _exit(126);
    if (fInChild) fInChild();
    close_range(3, ~0u, 0);  // what this program has open is no business of the server
    execve(strProgram.c_str(), apcArguments, vpcEnvironment.data());
    _exit(127);
}

CServerProcess::~CServerProcess()
{
    if (m_iPid > 0)
    {
        kill(m_iPid, SIGTERM);
        for (int i = 0; i < 100 && IsRunning(); ++i) std::this_thread::sleep_for(20ms);
        if (IsRunning())
        {
            kill(m_iPid, SIGKILL);
            waitpid(m_iPid, nullptr, 0);
        }
    }
    std::error_code aIgnored;
    fs::remove_all(m_aHome, aIgnored);
}

bool CServerProcess::IsRunning()
{
    if (m_iPid <= 0) return false;
    if (waitpid(m_iPid, nullptr, WNOHANG) == 0) return true;
    m_iPid = -1;
    return false;
}

int CServerProcess::WaitForEnd()
{
    int iStatus = 0;
    for (int i = 0; i < 2000; ++i)
    {
        if (waitpid(m_iPid, &iStatus, WNOHANG) == m_iPid)
        {
            m_iPid = -1;
            return WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : 128 + WTERMSIG(iStatus);
        }
        std::this_thread::sleep_for(10ms);
    }
    return -1;
}

int CServerProcess::RunToEnd(const Environment& rExtra, const std::string& strConfig,
                             std::string& rOutput)
{
    CServerProcess aServer;
    aServer.Start(rExtra, strConfig);
    const int iCode = aServer.WaitForEnd();
    rOutput = aServer.GetOutput();
    return iCode;
}

std::string CServerProcess::GetOutput() const
{
    std::ifstream aFile(m_aHome / "output.txt");
    std::ostringstream aText;
    aText << aFile.rdbuf();
    return aText.str();
}

int CServerProcess::CountInOutput(const std::string& strText) const
{
    return CountIn(GetOutput(), strText);
}

bool CServerProcess::WaitForOutput(const std::string& strText, int iTimes) const
{
    for (int i = 0; i < 500; ++i)
    {
        if (CountInOutput(strText) >= iTimes) return true;
        std::this_thread::sleep_for(20ms);
    }
    return false;
}
