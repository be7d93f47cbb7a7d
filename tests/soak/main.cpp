// Random sessions with the real server: every reply and every number is checked.

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <new>
#include <thread>
#include <utility>
#include <vector>

#include "tests/soak/Report.h"
#include "tests/soak/Session.h"
#include "tests/wire/Messages.h"
#include "tests/wire/ServerProcess.h"

namespace
{
using Clock = std::chrono::steady_clock;

/// One client process: a session, then the next that nobody has taken.
[[noreturn]] void RunClient(const Options& rOptions, const ServerProcess& rServer, Tally& rTally)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    while (!rTally.bStop)
    {
        const std::uint64_t ulTaken = rTally.ulNext++;
        if (ulTaken >= rOptions.ulSessions) break;
        const std::uint64_t ulSession = rOptions.ulFirst + ulTaken;
        CConsole aConsole(rServer.GetHome());
        CSession aSession(rServer.GetPort(), CRandom(rOptions.ulSeed, ulSession), aConsole, rTally);
        if (!aSession.Run())
            rTally.Fail("--seed " + std::to_string(rOptions.ulSeed) + " --only " +
                        std::to_string(ulSession) + ": " + aSession.GetError());
        ++rTally.ulSessions;
    }
    _exit(0);  // the server belongs to the parent
}

bool HasEnded(pid_t iClient, Tally& rTally)
{
    int iStatus = 0;
    if (waitpid(iClient, &iStatus, WNOHANG) == 0) return false;
    if (iStatus != 0) rTally.Fail("a client process has crashed");
    return true;
}

/// The server while it serves a client that has nothing in it.
Vitals Probe(const ServerProcess& rServer, Tally& rTally)
{
    RawClient aClient(rServer.GetPort());
    if (!aClient.Ask(Msg::eServerProp)) rTally.Fail("the server does not answer");
    const Vitals aVitals = GetVitals(rServer.GetPid());
    aClient.Send(Msg::eQuit);
    if (!aClient.IsClosedByPeer()) rTally.Fail("the server does not let a client go");
    return aVitals;
}

/// Runs the clients and looks at the server meanwhile.
void RunClients(const Options& rOptions, ServerProcess& rServer, Tally& rTally, Course& rCourse)
{
    constexpr auto aPatience = std::chrono::seconds(180);  // sessions take milliseconds
    const auto aStart = Clock::now();
    std::vector<pid_t> vClients;
    for (int i = 0; i < rOptions.iClients; ++i)
    {
        vClients.push_back(fork());
        if (vClients.back() == 0) RunClient(rOptions, rServer, rTally);
    }
    auto aProgress = aStart;
    std::uint64_t ulSeen = 0;
    while (!vClients.empty())
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        const Vitals aNow = GetVitals(rServer.GetPid());
        if (rTally.ulSessions >= 100 && rCourse.aHundred.lRss == 0) rCourse.aHundred = aNow;
        rCourse.aHighest.lRss = std::max(rCourse.aHighest.lRss, aNow.lRss);
        rCourse.dSeconds = std::chrono::duration<double>(Clock::now() - aStart).count();
        if (rCourse.dSeconds > rOptions.dSeconds) rTally.bStop = true;
        if (rTally.ulSessions != std::exchange(ulSeen, rTally.ulSessions)) aProgress = Clock::now();
        if (Clock::now() - aProgress > aPatience) return rTally.Fail("no session comes to an end");
        if (!rServer.IsRunning()) return rTally.Fail("the server has ended");
        std::erase_if(vClients, [&](pid_t iPid) { return HasEnded(iPid, rTally); });
    }
}
/// The last words of a server that has ended, a sanitizer's report for example.
void PrintEnd(const std::string& strOutput)
{
    constexpr std::size_t tMost = 6000;
    std::puts(strOutput.substr(strOutput.size() - std::min(strOutput.size(), tMost)).c_str());
}
}  // namespace

int main(int iCount, char** ppcArguments)
{
    Options aOptions;
    if (!aOptions.Parse(iCount, ppcArguments)) return 2;
    void* const pvShared =
        mmap(nullptr, sizeof(Tally), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (pvShared == MAP_FAILED) return 2;
    Tally& rTally = *new (pvShared) Tally;

    ServerProcess aServer;
    aServer.SetProgram(aOptions.strServer);
    aServer.Start();
    Course aCourse;
    Probe(aServer, rTally);  // opens what stays open
    aCourse.aStart = Probe(aServer, rTally);
    if (!rTally.bFailed) RunClients(aOptions, aServer, rTally, aCourse);
    if (!rTally.bFailed)
    {
        aCourse.aEnd = Probe(aServer, rTally);
        CheckVitals(aOptions, aCourse, rTally);
        CheckCounts(rTally);
    }
    Print(aOptions, aCourse, rTally);
    if (!aServer.IsRunning()) PrintEnd(aServer.GetOutput());
    return rTally.bFailed ? 1 : 0;
}
