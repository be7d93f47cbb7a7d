#include "server/Thread/StopSignal.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <system_error>
#include <thread>

#include "server/Util/LogFile.h"

namespace
{
bool IsIgnored(int iSignal)
{
    struct sigaction aOld = {};
    sigaction(iSignal, nullptr, &aOld);
    return aOld.sa_handler == SIG_IGN;
}

/// Ends the process as if nobody had asked for the signal, so that the parent sees why it ended.
[[noreturn]] void EndBySignal(int iSignal, const sigset_t& rMask)
{
    signal(iSignal, SIG_DFL);
    pthread_sigmask(SIG_UNBLOCK, &rMask, nullptr);
    raise(iSignal);
    _exit(128 + iSignal);
}

/// \param aMask  blocked on every thread of the process
[[noreturn]] void WaitAndEnd(sigset_t aMask)
{
    int iSignal = 0;
    while (sigwait(&aMask, &iSignal) != 0) continue;
    CLogFile::FinishLine();
    // Not exit(): the destructors of statics would run under the threads that still use them.
    if (iSignal == SIGTERM) _exit(0);
    EndBySignal(iSignal, aMask);
}
}  // namespace

void CStopSignal::Start()
{
    for (const int iSignal : {SIGPIPE, SIGXFSZ}) signal(iSignal, SIG_IGN);
    sigset_t aMask;
    sigemptyset(&aMask);
    for (const int iSignal : {SIGTERM, SIGINT, SIGHUP})
        if (!IsIgnored(iSignal)) sigaddset(&aMask, iSignal);
    pthread_sigmask(SIG_BLOCK, &aMask, nullptr);
    try
    {
        std::thread(WaitAndEnd, aMask).detach();
    }
    catch (const std::system_error&)  // no thread to be had: the signals act by themselves
    {
        pthread_sigmask(SIG_UNBLOCK, &aMask, nullptr);
    }
}
