// Drawn sessions with the real server, one after the other: every reply and every number is
// checked.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "tests/model/Session.h"
#include "tests/wire/ServerProcess.h"

namespace
{
using Clock = std::chrono::steady_clock;

/// What the command line asks for.
struct Options
{
    std::uint64_t ulSeconds = 1800, ulSeed = 1, ulFirst = 0, ulSessions = UINT32_MAX;
};

/// What the server takes while it serves a client that has nothing in it.
struct Vitals
{
    long lMemory = 0, lThreads = 0, lDescriptors = 0;  // memory in KiB
};

/// \return what is wrong, empty when nothing is
std::string Probe(const CServerProcess& rServer, Vitals& rVitals)
{
    CRawClient aClient(rServer.GetPort());
    if (aClient.Ask({Msg::eServerProp}) != 0) return "the server does not answer";
    const std::string strProcess = "/proc/" + std::to_string(rServer.GetPid());
    const std::string strStatus = ReadText(strProcess + "/status");
    const auto Find = [&](const char* pcKey)
    { return std::atol(&strStatus[strStatus.find(pcKey) + std::strlen(pcKey)]); };
    rVitals = {Find("VmRSS:"), Find("Threads:"),
               std::distance(std::filesystem::directory_iterator(strProcess + "/fd"), {})};
    aClient.Send({Msg::eQuit});
    return aClient.IsClosedByPeer() ? "" : "the server does not let a client go";
}

std::string RunSession(const CServerProcess& rServer, std::uint64_t ulSeed, std::uint64_t ulSession,
                       Counts& rCounts)
{
    CChoices aChoices(ulSeed, ulSession);
    Model aModel;
    CRawClient aClient(rServer.GetPort());
    CSession aSession(aClient, aChoices, aModel, rCounts, rServer.GetHome() / "output.txt", 48,
                      1e7);
    if (aSession.Run()) return {};
    return "SEED " + std::to_string(ulSeed) + " FIRST " + std::to_string(ulSession) + ": " +
           aSession.GetError();
}

std::string RunSessions(const CServerProcess& rServer, const Options& rOptions)
{
    const auto aEnd = Clock::now() + std::chrono::seconds(rOptions.ulSeconds);
    Counts aCounts;
    Vitals aFirst, aLater, aLast;
    std::string strWrong = Probe(rServer, aFirst);  // opens what stays open
    if (strWrong.empty()) strWrong = Probe(rServer, aFirst);
    std::uint64_t ul = 0;
    for (; ul < rOptions.ulSessions && Clock::now() < aEnd && strWrong.empty(); ++ul)
    {
        strWrong = RunSession(rServer, rOptions.ulSeed, rOptions.ulFirst + ul, aCounts);
        if (strWrong.empty() && ul < 100) strWrong = Probe(rServer, aLater);
    }
    if (strWrong.empty()) strWrong = Probe(rServer, aLast);
    std::printf(
        "%llu sessions, %ld requests, %ld refused, %ld results, %ld beyond the tolerance\n"
        "%ld KiB, after 100 sessions %ld\n",
        static_cast<unsigned long long>(ul), aCounts.lRequests, aCounts.lRefused, aCounts.lResults,
        aCounts.lBeyond, aLast.lMemory, aLater.lMemory);
    if (!strWrong.empty()) return strWrong;
    if (aLast.lDescriptors != aFirst.lDescriptors) return "descriptors have leaked";
    if (aLast.lThreads != aFirst.lThreads) return "threads have leaked";
    if (aLast.lMemory > aLater.lMemory + 16384) return "the server's memory grows";
    if (aCounts.lBeyond > 1 + aCounts.lResults / 20000)
        return "too many iterations end beyond the tolerance";
    return {};
}
}  // namespace

int main(int iCount, char** ppcArguments)
{
    Options aOptions;
    std::uint64_t* const apul[] = {&aOptions.ulSeconds, &aOptions.ulSeed, &aOptions.ulFirst,
                                   &aOptions.ulSessions};
    for (int i = 1; i < iCount; ++i)
        if (i > 4 || std::sscanf(ppcArguments[i], "%lu", apul[i - 1]) != 1)
        {
            std::fputs("usage: talven-soak [SECONDS [SEED [FIRST [SESSIONS]]]]\n", stderr);
            return 2;
        }
    CServerProcess aServer;
    // The allocator gives back what it can, so that memory that stays is a leak.
    aServer.Start({{"MALLOC_TRIM_THRESHOLD_", "131072"}, {"MALLOC_MMAP_THRESHOLD_", "131072"}});
    const std::string strWrong = RunSessions(aServer, aOptions);
    if (!aServer.IsRunning()) std::puts(aServer.GetOutput().c_str());  // its last words
    std::puts(strWrong.empty() ? "all as expected" : ("FAILED: " + strWrong).c_str());
    return strWrong.empty() ? 0 : 1;
}
