// Drawn sessions with the real server: every reply and every number is checked.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <thread>

#include "tests/model/Session.h"
#include "tests/wire/ServerProcess.h"

namespace
{
using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

constexpr int g_iLargest = 48, g_iClients = 3;
constexpr double g_dMostWork = 1e7;       // samples of a job
constexpr long g_lMostGrowth = 16 << 10;  // KiB after 100 sessions

constexpr char g_acUsage[] =
    "usage: soak [options] [SECONDS]\n"
    "  --seed N       other sessions (1)\n"
    "  --sessions N   end after so many\n"
    "  --only K       session K alone, to repeat a failure\n"
    "  --server PATH  another build of the server\n"
    "  --trace        prints the requests\n";

/// What the command line asks for.
struct Options
{
    double dSeconds = 1800;
    std::uint64_t ulSeed = 1, ulFirst = 0, ulSessions = UINT64_MAX >> 1;
    bool bTrace = false;
    std::string strServer;
};

/// \return false when an option is not known
bool Parse(int iCount, char** ppcArguments, Options& rOptions)
{
    for (int i = 1; i < iCount; ++i)
    {
        const std::string strName = ppcArguments[i];
        const bool bLast = i + 1 == iCount;
        if (strName == "--trace")
            rOptions.bTrace = true;
        else if (strName == "--server" && !bLast)
            rOptions.strServer = fs::absolute(ppcArguments[++i]);  // it runs elsewhere
        else if (strName == "--seed" && !bLast)
            rOptions.ulSeed = std::strtoull(ppcArguments[++i], nullptr, 0);
        else if (strName == "--sessions" && !bLast)
            rOptions.ulSessions = std::strtoull(ppcArguments[++i], nullptr, 0);
        else if (strName == "--only" && !bLast)
        {
            rOptions.ulFirst = std::strtoull(ppcArguments[++i], nullptr, 0);
            rOptions.ulSessions = 1;
        }
        else if ((rOptions.dSeconds = std::atof(ppcArguments[i])) <= 0)
            return false;
    }
    return true;
}

/// What the server's process takes: resident memory, KiB, threads, descriptors.
struct Vitals
{
    long lRss = 0, lThreads = 0, lDescriptors = 0;
};

/// The server while it serves a client that has nothing in it.
Vitals Probe(const CServerProcess& rServer, Tally& rTally)
{
    CRawClient aClient(rServer.GetPort());
    if (aClient.Ask({Msg::eServerProp}) != 0) rTally.Fail("the server does not answer");
    const std::string strProcess = "/proc/" + std::to_string(rServer.GetPid());
    const std::string strStatus = ReadText(strProcess + "/status");
    const auto Find = [&](const char* pcKey)
    {
        const std::size_t t = strStatus.find(pcKey);
        return t == std::string::npos ? 0 : std::atol(&strStatus[t + std::strlen(pcKey)]);
    };
    std::error_code aIgnored;
    const fs::directory_iterator aOpen(strProcess + "/fd", aIgnored);
    const Vitals aVitals = {Find("VmRSS:"), Find("Threads:"), std::distance(aOpen, {})};
    aClient.Send({Msg::eQuit});
    if (!aClient.IsClosedByPeer()) rTally.Fail("the server does not let a client go");
    return aVitals;
}

/// Clients that take turns until the session ulEnd or the time is over.
void RunClients(const Options& rOptions, CServerProcess& rServer, Tally& rTally,
                std::atomic<std::uint64_t>& rNext, std::uint64_t ulEnd, Clock::time_point aEnd)
{
    const auto RunClient = [&]
    {
        for (std::uint64_t ul; !rTally.bStop && Clock::now() < aEnd && (ul = rNext++) < ulEnd;)
        {
            CChoices aChoices(rOptions.ulSeed, ul);
            CConsole aConsole(rServer.GetHome() / "output.txt");
            Model aModel;
            CRawClient aClient(rServer.GetPort());
            CSession aSession(aClient, aChoices, aModel, aConsole, rTally, g_iLargest, g_dMostWork);
            if (!aSession.Run())
                rTally.Fail("--seed " + std::to_string(rOptions.ulSeed) + " --only " +
                            std::to_string(ul) + ": " + aSession.GetError());
            rTally.Note(eSessions);
        }
    };
    std::vector<std::thread> vClients;
    for (int i = 0; i < g_iClients; ++i) vClients.emplace_back(RunClient);
    for (std::thread& rClient : vClients) rClient.join();
    rNext = ulEnd;  // each client has drawn one number more
    if (!rServer.IsRunning()) rTally.Fail("the server has ended");
}
}  // namespace

int main(int iCount, char** ppcArguments)
{
    Options aOptions;
    if (!Parse(iCount, ppcArguments, aOptions)) return std::fputs(g_acUsage, stderr), 2;
    Tally aTally;
    aTally.bTrace = aOptions.bTrace;
    CServerProcess aServer;
    aServer.SetProgram(aOptions.strServer);
    aServer.Start();
    Probe(aServer, aTally);  // opens what stays open
    const auto aStop = Clock::now() + std::chrono::milliseconds(long(1000 * aOptions.dSeconds));
    const std::uint64_t ulEnd = aOptions.ulFirst + aOptions.ulSessions;
    std::atomic<std::uint64_t> ulNext = aOptions.ulFirst;
    Vitals aVitals[3] = {Probe(aServer, aTally)};  // at the start, after 100 sessions, at the end
    for (int i = 1; i < 3 && !aTally.bStop; ++i)
    {
        RunClients(aOptions, aServer, aTally, ulNext,
                   i == 1 ? std::min(ulEnd, aOptions.ulFirst + 100) : ulEnd, aStop);
        if (!aTally.bStop) aVitals[i] = Probe(aServer, aTally);
    }
    if (!aTally.bStop && aVitals[2].lDescriptors != aVitals[0].lDescriptors)
        aTally.Fail("descriptors have leaked");
    if (!aTally.bStop && aVitals[2].lThreads != aVitals[0].lThreads)
        aTally.Fail("threads have leaked");
    if (!aTally.bStop && aVitals[2].lRss > aVitals[1].lRss + g_lMostGrowth)
        aTally.Fail("the server's memory grows");
    if (aTally.aulChecks[eUnjudged] > 3 + aTally.aulChecks[eEmRun] / 5000)
        aTally.Fail("too many results of EM are not what they should be");

    for (int e = 0; e < eChecks; ++e)
        std::printf("%-24s %10llu  largest error %3.0f %% of the tolerance\n", g_apcChecks[e],
                    static_cast<unsigned long long>(aTally.aulChecks[e]), 100 * aTally.adError[e]);
    for (const auto& [lRss, lThreads, lDescriptors] : aVitals)
        std::printf("memory, KiB %8ld  threads %ld  descriptors %ld\n", lRss, lThreads,
                    lDescriptors);
    if (!aServer.IsRunning()) std::puts(aServer.GetOutput().c_str());  // its last words
    std::puts(aTally.bStop ? ("FAILED: " + aTally.strFailure).c_str() : "all as expected");
    return aTally.bStop ? 1 : 0;
}
