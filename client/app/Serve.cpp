#include "Serve.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "talven/PrivateServer.h"

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

}  // namespace

void RunServe(const ServeArgs& rArgs, std::string& rError)
{
    std::string strProgram = FindServerProgram();
    if (char* pcFull = realpath(strProgram.c_str(), nullptr); pcFull != nullptr)
    {
        strProgram = pcFull;
        std::free(pcFull);
    }
    if (strProgram.empty())
    {
        rError = "cannot find talven-server";
        return;
    }
    const bool bOptions = rArgs.iPort > 0 || rArgs.iDevices > 0 || !rArgs.strBind.empty() ||
                          !rArgs.strBackend.empty();
    if (bOptions && !EnterNowhere())
    {
        rError = std::string("cannot enter a temporary directory: ") + std::strerror(errno);
        return;
    }
    if (rArgs.iPort > 0) SetEnvironment("TALVEN_PORT", std::to_string(rArgs.iPort));
    if (rArgs.iDevices > 0) SetEnvironment("TALVEN_BUSY_GPUS", GetBusyDevices(rArgs.iDevices));
    SetEnvironment("TALVEN_BIND", rArgs.strBind);
    SetEnvironment("TALVEN_BACKEND", rArgs.strBackend);

    for (const int iSignal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGXFSZ}) signal(iSignal, SIG_DFL);
    execl(strProgram.c_str(), strProgram.c_str(), static_cast<char*>(nullptr));
    rError = strProgram + ": cannot run: " + std::strerror(errno);
}

}  // namespace talven
