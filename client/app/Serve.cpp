#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "Command.h"
#include "Options.h"

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
    char acDirectory[] = "/tmp/talven-XXXXXX";
    return mkdtemp(acDirectory) != nullptr && chdir(acDirectory) == 0 && rmdir(acDirectory) == 0;
}

/// `talven serve`: becomes talven-server. Without an option the server finds its settings itself.
class CServeCommand : public CCommand
{
public:
    void AddOptions(CLI::App& rApp) override;
    /// Returns only when it fails.
    bool Run() override;

private:
    int m_iPort = 0, m_iDevices = 0;
    std::string m_strBind, m_strBackend;
};

void CServeCommand::AddOptions(CLI::App& rApp)
{
    rApp.add_option("--port", m_iPort, "TCP port [20248]")->check(CLI::Range(1, 65535));
    rApp.add_option("--devices", m_iDevices, "Use only the first so many devices [all]")
        ->check(CLI::Range(1, g_iMaxDevices));
    rApp.add_option("--bind", m_strBind, "IPv4 address to listen on [all]")->check(CLI::ValidIPV4);
    AddBackend(rApp, m_strBackend);
}

bool CServeCommand::Run()
{
    const std::string strProgram = FindServerProgram();
    if (strProgram.empty()) return mFail("cannot find talven-server");
    const bool bOptions =
        m_iPort > 0 || m_iDevices > 0 || !m_strBind.empty() || !m_strBackend.empty();
    if (bOptions && !EnterNowhere())
        return mFail(std::string("cannot enter a temporary directory: ") + std::strerror(errno));
    if (m_iPort > 0) SetEnvironment("TALVEN_PORT", std::to_string(m_iPort));
    if (m_iDevices > 0) SetEnvironment("TALVEN_BUSY_GPUS", GetBusyDevices(m_iDevices));
    SetEnvironment("TALVEN_BIND", m_strBind);
    SetEnvironment("TALVEN_BACKEND", m_strBackend);

    for (const int iSignal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGXFSZ}) signal(iSignal, SIG_DFL);
    execl(strProgram.c_str(), strProgram.c_str(), static_cast<char*>(nullptr));
    return mFail(strProgram + ": cannot run: " + std::strerror(errno));
}

}  // namespace

std::unique_ptr<CCommand> MakeServe()
{
    return std::make_unique<CServeCommand>();
}

}  // namespace talven
