#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>

#include "Command.h"
#include "Options.h"
#include "Relay.h"

namespace talven
{
namespace
{

void SetEnvironment(const char* pcName, const std::string& strValue)
{
    if (!strValue.empty()) setenv(pcName, strValue.c_str(), 1);
}

/// A configuration file in the working directory would win over the environment: go where there is
/// none. The directory is removed at once, so that nothing is left behind and nobody can put a file
/// there.
bool EnterNowhere()
{
    std::error_code aError;
    std::string strDirectory = std::filesystem::temp_directory_path(aError) / "talven-XXXXXX";
    return !aError && mkdtemp(strDirectory.data()) != nullptr && chdir(strDirectory.c_str()) == 0 &&
           rmdir(strDirectory.c_str()) == 0;
}

/// `talven serve`: becomes talven-server. Without an option the server finds its settings itself.
class CServeCommand : public CCommand
{
public:
    void AddOptions(CLI::App& rApp) override;
    /// Returns only when it fails.
    bool Run() override;

private:
    bool mServeHere();

    bool m_bStdio = false;
    int m_iPort = 0, m_iDevices = 0, m_iCores = 0;
    std::string m_strBind, m_strBackend;
};

void CServeCommand::AddOptions(CLI::App& rApp)
{
    CLI::Option* pStdio = rApp.add_flag(
        "--stdio", m_bStdio, "Serve one client, on standard input and output; what ssh:// runs");
    rApp.add_option("--port", m_iPort, "TCP port [20248]")
        ->check(CLI::Range(1, 65535))
        ->excludes(pStdio);
    rApp.add_option("--devices", m_iDevices, "Use only the first so many devices [all]")
        ->check(CLI::Range(1, g_iMaxDevices));
    rApp.add_option("--cores", m_iCores,
                    "Cores the host backend uses, on all its devices together [those that the "
                    "server may use]")
        ->check(CLI::Range(1, g_iMaxCores));
    rApp.add_option("--bind", m_strBind, "IPv4 address to listen on [all]")
        ->check(CLI::ValidIPV4)
        ->excludes(pStdio);
    AddBackend(rApp, m_strBackend);
}

bool CServeCommand::Run()
{
    if (m_bStdio) return mServeHere();
    const std::string strProgram = FindServerProgram();
    if (strProgram.empty()) return mFail("cannot find talven-server");
    const bool bOptions = m_iPort > 0 || m_iDevices > 0 || m_iCores > 0 || !m_strBind.empty() ||
                          !m_strBackend.empty();
    if (bOptions && !EnterNowhere())
        return mFail(std::string("cannot enter a temporary directory: ") + std::strerror(errno));
    if (m_iPort > 0) SetEnvironment("TALVEN_PORT", std::to_string(m_iPort));
    if (m_iDevices > 0) SetEnvironment("TALVEN_BUSY_GPUS", GetBusyDevices(m_iDevices));
    if (m_iCores > 0) SetEnvironment("TALVEN_CORES", std::to_string(m_iCores));
    SetEnvironment("TALVEN_BIND", m_strBind);
    SetEnvironment("TALVEN_BACKEND", m_strBackend);

    for (const int iSignal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGXFSZ}) signal(iSignal, SIG_DFL);
    execl(strProgram.c_str(), strProgram.c_str(), static_cast<char*>(nullptr));
    return mFail(strProgram + ": cannot run: " + std::strerror(errno));
}

/// With a private server, which ends when the client does.
bool CServeCommand::mServeHere()
{
    PrivateServerOptions aOptions;
    aOptions.iDevices = m_iDevices;
    aOptions.strBackend = m_strBackend;
    aOptions.iCores = m_iCores;
    CPrivateServer aServer;
    int iSocket = -1;
    if (!mCheck(aServer.Start(aOptions, iSocket), aServer)) return false;
    const bool bAnswered = Relay(STDIN_FILENO, STDOUT_FILENO, iSocket, CInterrupt::GetFd());
    close(iSocket);
    if (bAnswered || m_aReport.IsStopped()) return true;
    // A process that dies closes its sockets a little before it can be waited for.
    for (int i = 0; i < 100 && aServer.DescribeEnd().empty(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    if (aServer.DescribeEnd().empty()) return true;
    const std::string strReason = aServer.GetServerError();
    return mFail("talven-server did not start" + (strReason.empty() ? "" : ": " + strReason));
}

}  // namespace

std::unique_ptr<CCommand> MakeServe()
{
    return std::make_unique<CServeCommand>();
}

}  // namespace talven
