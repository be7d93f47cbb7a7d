#include "SshPipe.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <thread>
#include <vector>

#include "talven/Text.h"

namespace talven
{
namespace
{

using namespace std::chrono_literals;

/// What would get in the way of a stream, and how a machine that died is noticed.
std::vector<std::string> MakeArguments(const ServerName& rName, bool bServe)
{
    const char* pcNamed = std::getenv("TALVEN_SSH");
    std::vector<std::string> vstrArgs = {pcNamed != nullptr && *pcNamed != 0 ? pcNamed : "ssh",
                                         "-T", "-x"};
    for (const char* pcOption : {"ControlMaster=no", "PermitLocalCommand=no", "RemoteCommand=none",
                                 "LogLevel=INFO", "ClearAllForwardings=yes", "ConnectTimeout=15",
                                 "ServerAliveInterval=20", "ServerAliveCountMax=6"})
        vstrArgs.insert(vstrArgs.end(), {"-o", pcOption});
    if (!bServe) vstrArgs.insert(vstrArgs.end(), {"-W", Format("localhost:%d", rName.usPort)});
    vstrArgs.insert(vstrArgs.end(), {"--", rName.strHost});
    if (bServe) vstrArgs.insert(vstrArgs.end(), {"talven", "serve", "--stdio"});
    return vstrArgs;
}

/// What the child does between fork and exec: system calls only. It stays in our process group: ssh
/// may ask for a password on the terminal. Ctrl-C there is for us alone, who may want to go on.
[[noreturn]] void RunChild(pid_t iParent, int iStream, int iWords, char* const* ppcArgs)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != iParent) _exit(127);  // it died before the line above
    sigset_t aNone;
    sigemptyset(&aNone);
    sigprocmask(SIG_SETMASK, &aNone, nullptr);
    for (const int iSignal : {SIGTERM, SIGPIPE, SIGXFSZ}) signal(iSignal, SIG_DFL);
    for (const int iSignal : {SIGINT, SIGHUP}) signal(iSignal, SIG_IGN);
    if (dup2(iStream, 0) == -1 || dup2(iStream, 1) == -1 || dup2(iWords, 2) == -1) _exit(127);
    execvp(ppcArgs[0], ppcArgs);
    constexpr std::string_view strWords = "ssh cannot be run\n";
    _exit(write(2, strWords.data(), strWords.size()) > 0 ? 127 : 126);
}

}  // namespace

CSshPipe::~CSshPipe()
{
    if (m_iPid != -1)
    {
        kill(m_iPid, SIGKILL);
        while (waitpid(m_iPid, nullptr, 0) == -1 && errno == EINTR) continue;
    }
    if (m_iWords != -1) close(m_iWords);
}

bool CSshPipe::Start(const ServerName& rName, bool bServe, int& rSocket)
{
    int aiPair[2] = {-1, -1};
    if (m_iWords == -1) m_iWords = memfd_create("ssh", MFD_CLOEXEC);
    if (m_iWords == -1 || ftruncate(m_iWords, 0) != 0 || lseek(m_iWords, 0, SEEK_SET) != 0 ||
        socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, aiPair) != 0)
        return Fail(m_strError, Format("cannot start ssh: %s", std::strerror(errno)));
    m_tShown = 0;

    std::vector<std::string> vstrArgs = MakeArguments(rName, bServe);
    std::vector<char*> vpcArgs;
    vpcArgs.reserve(vstrArgs.size() + 1);
    for (std::string& rArg : vstrArgs) vpcArgs.push_back(rArg.data());
    vpcArgs.push_back(nullptr);
    const pid_t iParent = getpid();
    m_iPid = fork();
    if (m_iPid == 0) RunChild(iParent, aiPair[1], m_iWords, vpcArgs.data());
    close(aiPair[1]);
    rSocket = aiPair[0];
    if (m_iPid != -1) return true;
    close(rSocket);
    return Fail(m_strError, Format("cannot start ssh: %s", std::strerror(errno)));
}

bool CSshPipe::mHasEnded()
{
    if (m_iPid != -1 && waitpid(m_iPid, nullptr, WNOHANG) != 0) m_iPid = -1;
    return m_iPid == -1;
}

void CSshPipe::Finish()
{
    for (int i = 0; i < 200 && !mHasEnded(); ++i) std::this_thread::sleep_for(5ms);
    if (m_iPid == -1) return;
    kill(m_iPid, SIGKILL);
    while (waitpid(m_iPid, nullptr, 0) == -1 && errno == EINTR) continue;
    m_iPid = -1;
}

std::string CSshPipe::mReadWords() const
{
    struct stat aStatus
    {
    };
    if (m_iWords == -1 || fstat(m_iWords, &aStatus) != 0) return {};
    std::string strWords(static_cast<std::size_t>(aStatus.st_size), '\0');
    const ssize_t iRead = pread(m_iWords, strWords.data(), strWords.size(), 0);
    strWords.resize(static_cast<std::size_t>(std::max<ssize_t>(iRead, 0)));
    return strWords;
}

bool CSshPipe::IsNobodyThere() const
{
    return mReadWords().find("open failed: ") != std::string::npos;
}

std::string CSshPipe::GetLastWords() const
{
    constexpr std::size_t tMost = 300;
    std::string strLine = mReadWords();
    strLine.resize(strLine.find_last_not_of("\r\n ") + 1);
    strLine = strLine.substr(strLine.rfind('\n') + 1, tMost);
    std::ranges::replace_if(
        strLine, [](char c) { return c < ' ' || c > '~'; }, '?');
    return strLine;
}

void CSshPipe::PassOn()
{
    if (isatty(STDERR_FILENO) != 1) return;
    const std::string strWords = mReadWords();
    const std::string_view strNew = std::string_view(strWords).substr(m_tShown);
    if (!strNew.empty() && write(STDERR_FILENO, strNew.data(), strNew.size()) > 0)
        m_tShown = strWords.size();
}

}  // namespace talven
