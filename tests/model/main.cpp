// Drawn sessions with the real server, one after the other: every reply and every number is
// checked.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <random>
#include <stdexcept>

#include "tests/model/Session.h"
#include "tests/wire/ServerProcess.h"

namespace
{
using Clock = std::chrono::steady_clock;

void Expect(bool bTrue, const std::string& strWrong)
{
    if (!bTrue) throw std::runtime_error(strWrong);
}

/// What the server takes while it serves a client that has nothing in it.
struct Vitals
{
    long lMemory = 0, lThreads = 0, lDescriptors = 0;  // memory in KiB
};

Vitals Probe(const CServerProcess& rServer)
{
    CRawClient aClient(rServer.GetPort());
    Expect(aClient.Ask({Msg::eServerProp}) == 0, "the server does not answer");
    const std::string strProcess = "/proc/" + std::to_string(rServer.GetPid());
    const std::string strStatus = ReadText(strProcess + "/status");
    const auto Find = [&](const char* pcKey)
    { return std::atol(&strStatus[strStatus.find(pcKey) + std::strlen(pcKey)]); };
    const std::filesystem::directory_iterator aOpen(strProcess + "/fd");
    const Vitals aVitals = {Find("VmRSS:"), Find("Threads:"), std::distance(aOpen, {})};
    aClient.Send({Msg::eQuit});
    Expect(aClient.IsClosedByPeer(), "the server does not let a client go");
    return aVitals;
}

void RunSession(const CServerProcess& rServer, std::uint64_t ulSeed, std::uint64_t ulSession,
                Counts& rCounts)
{
    std::mt19937_64 aRandom(ulSeed << 32 ^ ulSession);
    std::vector<std::uint8_t> vucBytes(1 << 16);  // more than a session takes
    for (std::uint8_t& rucByte : vucBytes) rucByte = std::uint8_t(aRandom() >> 56);
    CChoices aChoices(vucBytes);
    Model aModel;
    CRawClient aClient(rServer.GetPort());
    const auto aOutput = rServer.GetHome() / "output.txt";
    CSession aSession(aClient, aChoices, aModel, rCounts, aOutput);
    const bool bDone = aSession.Run();
    // The arguments that repeat it.
    const auto strWhich = "9 " + std::to_string(ulSeed) + ' ' + std::to_string(ulSession) + " 1: ";
    Expect(bDone, strWhich + aSession.GetError());
    Expect(rCounts.lBeyond <= 2 + rCounts.lResults / 10000,
           strWhich + "too many iterations end beyond the tolerance");
}

void RunSessions(const CServerProcess& rServer, Clock::time_point aEnd, std::uint64_t ulSeed,
                 std::uint64_t ulFirst, std::uint64_t ulSessions)
{
    Counts aCounts;
    Vitals aEarly;  // after up to 100 sessions
    std::uint64_t ul = 0;
    for (; ul < ulSessions && Clock::now() < aEnd; ++ul)
    {
        RunSession(rServer, ulSeed, ulFirst + ul, aCounts);
        if (ul < 100) aEarly = Probe(rServer);
    }
    const Vitals aLast = Probe(rServer);
    std::printf("%lu sessions, %ld requests, %ld results, %ld beyond the tolerance\n", ul,
                aCounts.lRequests, aCounts.lResults, aCounts.lBeyond);
    Expect(aLast.lDescriptors == aEarly.lDescriptors, "descriptors have leaked");
    Expect(aLast.lThreads == aEarly.lThreads, "threads have leaked");
    Expect(aLast.lMemory < aEarly.lMemory + 16384, "the server's memory grows");
}
}  // namespace

int main(int iCount, char** ppcArguments)
{
    std::uint64_t aul[] = {1800, 1, 0, UINT32_MAX};  // seconds, seed, first session, sessions
    for (int i = 1; i < iCount; ++i)
        if (i > 4 || std::sscanf(ppcArguments[i], "%lu", &aul[i - 1]) != 1)
        {
            std::fputs("usage: talven-soak [SECONDS [SEED [FIRST [SESSIONS]]]]\n", stderr);
            return 2;
        }
    CServerProcess aServer;
    // The allocator gives back what it can, so that memory that stays is a leak.
    aServer.Start({{"MALLOC_TRIM_THRESHOLD_", "131072"}, {"MALLOC_MMAP_THRESHOLD_", "131072"}});
    try
    {
        RunSessions(aServer, Clock::now() + std::chrono::seconds(aul[0]), aul[1], aul[2], aul[3]);
    }
    catch (const std::exception& rWrong)
    {
        if (!aServer.IsRunning()) std::puts(aServer.GetOutput().c_str());  // its last words
        std::printf("FAILED: %s\n", rWrong.what());
        return 1;
    }
}
