#include "Interrupt.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>

namespace talven
{
namespace
{

int g_aiPipe[2] = {-1, -1};
std::atomic<bool> g_bSet{false}, g_bKeeping{false}, g_bEnough{false};
static_assert(std::atomic<bool>::is_always_lock_free);

void OnSignal(int iSignal)
{
    if (g_bKeeping && !g_bEnough.exchange(true)) return;
    if (g_bSet.exchange(true) && iSignal == SIGINT)
    {
        signal(iSignal, SIG_DFL);
        raise(iSignal);
    }
    [[maybe_unused]] const ssize_t iWritten = write(g_aiPipe[1], "x", 1);
}

}  // namespace

void CInterrupt::Install()
{
    if (pipe2(g_aiPipe, O_CLOEXEC | O_NONBLOCK) != 0) return;
    for (const int iSignal : {SIGINT, SIGTERM, SIGHUP})
    {
        struct sigaction aOld
        {
        };
        sigaction(iSignal, nullptr, &aOld);
        if (aOld.sa_handler == SIG_IGN) continue;  // nohup, background jobs of a shell
        struct sigaction aNew
        {
        };
        aNew.sa_handler = OnSignal;
        sigaction(iSignal, &aNew, nullptr);
    }
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
}

int CInterrupt::GetFd()
{
    return g_aiPipe[0];
}
bool CInterrupt::IsSet()
{
    return g_bSet;
}

void CInterrupt::SetKeeping(bool bKeeping)
{
    g_bKeeping = bKeeping;
}
bool CInterrupt::IsEnough()
{
    return g_bEnough;
}

}  // namespace talven
