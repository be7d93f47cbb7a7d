// Drawn sessions with the real server: every reply and every number is checked.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>
#include <utility>
#include <vector>

#include "tests/model/Report.h"
#include "tests/model/Session.h"
#include "tests/wire/ServerProcess.h"

namespace
{
using Clock = std::chrono::steady_clock;

constexpr int g_iLargest = 48;
constexpr double g_dMostWork = 1e7;  // samples of a job

/// One client: a session, then the next that nobody has taken.
void RunClient(const Options& rOptions, const CServerProcess& rServer, Tally& rTally)
{
    while (!rTally.bStop)
    {
        const std::uint64_t ulTaken = rTally.ulNext++;
        if (ulTaken >= rOptions.ulSessions) break;
        const std::uint64_t ulSession = rOptions.ulFirst + ulTaken;
        CChoices aChoices(rOptions.ulSeed, ulSession);
        CConsole aConsole(rServer.GetHome() / "output.txt");
        Model aModel;
        CRawClient aClient(rServer.GetPort());
        CSession aSession(aClient, aChoices, aModel, aConsole, rTally, g_iLargest, g_dMostWork);
        if (!aSession.Run())
            rTally.Fail("--seed " + std::to_string(rOptions.ulSeed) + " --only " +
                        std::to_string(ulSession) + ": " + aSession.GetError());
        ++rTally.ulSessions;
    }
}

/// The server while it serves a client that has nothing in it.
Vitals Probe(const CServerProcess& rServer, Tally& rTally)
{
    CRawClient aClient(rServer.GetPort());
    if (aClient.Ask({Msg::eServerProp}) != 0) rTally.Fail("the server does not answer");
    const Vitals aVitals = GetVitals(rServer.GetPid());
    aClient.Send({Msg::eQuit});
    if (!aClient.IsClosedByPeer()) rTally.Fail("the server does not let a client go");
    return aVitals;
}

/// Runs the clients and looks at the server meanwhile.
void RunClients(const Options& rOptions, CServerProcess& rServer, Tally& rTally, Course& rCourse)
{
    const auto aStart = Clock::now();
    std::vector<std::thread> vClients;
    std::atomic<int> iBusy = rOptions.iClients;
    for (int i = 0; i < rOptions.iClients; ++i)
        vClients.emplace_back(
            [&]
            {
                RunClient(rOptions, rServer, rTally);
                --iBusy;
            });
    while (iBusy > 0)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        const Vitals aNow = GetVitals(rServer.GetPid());
        if (rTally.ulSessions >= 100 && rCourse.aHundred.lRss == 0) rCourse.aHundred = aNow;
        rCourse.aHighest.lRss = std::max(rCourse.aHighest.lRss, aNow.lRss);
        rCourse.dSeconds = std::chrono::duration<double>(Clock::now() - aStart).count();
        if (rCourse.dSeconds > rOptions.dSeconds) rTally.bStop = true;
        if (!rServer.IsRunning()) rTally.Fail("the server has ended");
    }
    for (std::thread& rClient : vClients) rClient.join();
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
    Tally aTally;
    aTally.bTrace = aOptions.bTrace;
    CServerProcess aServer;
    aServer.SetProgram(aOptions.strServer);
    aServer.Start();
    Course aCourse;
    Probe(aServer, aTally);  // opens what stays open
    aCourse.aStart = Probe(aServer, aTally);
    if (!aTally.bStop) RunClients(aOptions, aServer, aTally, aCourse);
    if (aTally.strFailure.empty())
    {
        aCourse.aEnd = Probe(aServer, aTally);
        CheckCourse(aOptions, aCourse, aTally);
    }
    Print(aOptions, aCourse, aTally);
    if (!aServer.IsRunning()) PrintEnd(aServer.GetOutput());
    return aTally.strFailure.empty() ? 0 : 1;
}
