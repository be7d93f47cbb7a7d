// Clients that go, systems that run out: the server says why and serves the next client.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <deque>
#include <sstream>
#include <thread>

#include "tests/wire/RawClient.h"
#include "tests/wire/ServerProcess.h"

using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace
{
using Clock = std::chrono::steady_clock;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool g_bAddress = true;
#else
constexpr bool g_bAddress = false;
#endif
#if defined(__SANITIZE_THREAD__)
constexpr bool g_bThread = true;
#else
constexpr bool g_bThread = false;
#endif

constexpr std::uint32_t g_uiEdge = 1024;  // of a large slice: 4 MiB
const Request g_aLargeVolume = {Msg::eVolSize, {g_uiEdge, g_uiEdge, 2}};

/// A session of its own: the sums along Z of a block of 1 in row 0 and of 2 in row 1, four slices
/// deep, seen at 0 degrees.
void ExpectSmallJob(const CServerProcess& rServer)
{
    CRawClient aClient(rServer.GetPort());
    EXPECT_EQ(aClient.Ask({Msg::eProjSize, {2, 2, 1}}), 0u);
    EXPECT_EQ(aClient.Ask({Msg::eVolSize, {2, 2, 4}}), 0u);
    for (std::uint32_t z = 0; z < 4; ++z)
        EXPECT_EQ(aClient.Ask({Msg::eVolSet, {z}, ToWords({1, 1, 2, 2})}), 0u);
    EXPECT_EQ(aClient.Ask({Msg::eReproject}), 0u);
    EXPECT_EQ(aClient.Ask({Msg::eProjGet, {0}}), 0u);
    EXPECT_EQ(aClient.GetReply().vuiData, ToWords({4, 4, 8, 8}));
}

/// A stack and a volume for a SART job.
void UploadJob(CRawClient& rClient, std::uint32_t uiEdge, std::uint32_t uiIterations)
{
    Words vuiOptions(1 + uiIterations, Bits(1));
    vuiOptions[0] = 30;
    rClient.Ask({Msg::eProjSize, {uiEdge, 64, 30}});
    rClient.Ask({Msg::eVolSize, {uiEdge, 64, uiEdge / 2}});
    rClient.Ask({Msg::eReconOpt, {1, uiIterations, 1, 0, 1}, vuiOptions});
}

// What a client may be in the middle of. Each leaves a server that waits for it or works for it.
void SendNothing(CRawClient&, CServerProcess&) {}
void SendHalfAHeader(CRawClient& rClient, CServerProcess&)
{
    ASSERT_TRUE(rClient.SendBytes("0123456789", 10));
}
void SendHalfASlice(CRawClient& rClient, CServerProcess&)
{
    ASSERT_EQ(rClient.Ask(g_aLargeVolume), 0u);
    ASSERT_TRUE(rClient.SendHeader({Msg::eVolSet, {1}}, 4 * g_uiEdge * g_uiEdge));
    const Words vuiHalf(g_uiEdge * g_uiEdge / 2);
    ASSERT_TRUE(rClient.SendBytes(vuiHalf.data(), 4 * vuiHalf.size()));
}
void SendPartOfUnusedData(CRawClient& rClient, CServerProcess&)
{
    ASSERT_TRUE(rClient.SendHeader({777}, 0xffffffffu));
    ASSERT_TRUE(rClient.SendBytes("abc", 3));
}
void StartJob(CRawClient& rClient, CServerProcess& rServer)
{
    UploadJob(rClient, 512, 3);
    const int iJobs = rServer.Count("Info: Start reconstruction.");
    ASSERT_TRUE(rClient.Send({Msg::eReconstruct}));
    ASSERT_TRUE(rServer.WaitFor("Info: Start reconstruction.", iJobs + 1));
}
void ReadHalfAReply(CRawClient& rClient, CServerProcess&)
{
    ASSERT_EQ(rClient.Ask(g_aLargeVolume), 0u);
    ASSERT_TRUE(rClient.Send({Msg::eVolGet, {0}}));
    EXPECT_FALSE(rClient.IsSilent(10));
}
void AskForMuchAndReadNothing(CRawClient& rClient, CServerProcess& rServer)
{
    ReadHalfAReply(rClient, rServer);
    for (int i = 0; i < 50; ++i) ASSERT_TRUE(rClient.Send({Msg::eVolGet, {0}}));
    std::this_thread::sleep_for(50ms);  // until the socket is full
}

struct Moment
{
    const char* pcWhat;
    void (*pfnEnter)(CRawClient& rClient, CServerProcess& rServer);
    bool bEndless = true;  // nothing happens until the client does something
};
constexpr Moment g_aMoments[] = {{"nothing sent", SendNothing},
                                 {"half a header", SendHalfAHeader},
                                 {"half a slice", SendHalfASlice},
                                 {"four gigabytes of nothing", SendPartOfUnusedData},
                                 {"a job", StartJob, false},
                                 {"half a reply", ReadHalfAReply},
                                 {"replies that nobody reads", AskForMuchAndReadNothing}};

TEST(Fault, ClientsMayGoAtAnyMoment)
{
    CServerProcess aServer;
    aServer.Start();
    for (const Moment& rMoment : g_aMoments)
        for (const bool bReset : {false, true})
        {
            SCOPED_TRACE(testing::Message() << rMoment.pcWhat << (bReset ? ", reset" : ", closed"));
            CRawClient aClient(aServer.GetPort());
            rMoment.pfnEnter(aClient, aServer);
            aClient.Close(bReset);
            ExpectSmallJob(aServer);
        }
}

TEST(Fault, IdleTimeoutDropsWhoeverStalls)
{
    CServerProcess aServer;
    aServer.Start({{"TALVEN_IDLE_TIMEOUT", "0.5"}});
    for (const Moment& rMoment : g_aMoments)
    {
        if (!rMoment.bEndless) continue;
        SCOPED_TRACE(rMoment.pcWhat);
        CRawClient aStalled(aServer.GetPort());
        rMoment.pfnEnter(aStalled, aServer);
        const auto aStart = Clock::now();
        ExpectSmallJob(aServer);  // waits until the other one is dropped
        EXPECT_GT(Clock::now() - aStart, 300ms);
        EXPECT_LT(Clock::now() - aStart, 15s);
    }
    CRawClient aSlow(aServer.GetPort());  // sends a little often enough
    ASSERT_EQ(aSlow.Ask({Msg::eVolSize, {5, 1, 1}}), 0u);
    ASSERT_TRUE(aSlow.SendHeader({Msg::eVolSet, {0}}, 20));
    for (int i = 0; i < 5; ++i)
    {
        std::this_thread::sleep_for(150ms);
        ASSERT_TRUE(aSlow.SendBytes("abcd", 4));
    }
    EXPECT_TRUE(aSlow.Receive());
}

TEST(Fault, CrowdsAreServedOneByOne)
{
    CServerProcess aServer;
    aServer.Start();
    std::deque<CRawClient> aClients;
    for (std::uint32_t i = 0; i < 8; ++i)  // as many as the queue takes
    {
        aClients.emplace_back(aServer.GetPort());
        ASSERT_TRUE(aClients.back().Send({Msg::eVolSize, {i + 1, 1, 1}}));
        ASSERT_TRUE(aClients.back().Send({Msg::eVolGet, {0}}));
    }
    EXPECT_TRUE(aClients.back().IsSilent(0.1));
    for (std::size_t i = 0; i < aClients.size(); ++i)  // each gets its own session
    {
        ASSERT_TRUE(aClients[i].Receive());
        const auto aSlice = aClients[i].Receive();
        ASSERT_TRUE(aSlice);
        EXPECT_EQ(aSlice->vuiData, Words(i + 1));
        aClients[i].Close(i % 2 == 0);
    }
    ExpectSmallJob(aServer);
}

TEST(Fault, SignalsEndTheServerAtOnceWhateverItDoes)
{
    const std::pair<int, int> aSignals[] = {{SIGTERM, 0}, {SIGINT, 130}, {SIGHUP, 129}};
    for (std::size_t i = 0; i < std::size(g_aMoments); ++i)
    {
        const auto& [iSignal, iCode] = aSignals[i % 3];
        SCOPED_TRACE(testing::Message() << g_aMoments[i].pcWhat << ", signal " << iSignal);
        CServerProcess aServer;
        aServer.Start();
        CRawClient aClient(aServer.GetPort());
        ASSERT_TRUE(aServer.WaitFor("Info: Client has been connected."));
        g_aMoments[i].pfnEnter(aClient, aServer);
        kill(aServer.GetPid(), iSignal);
        EXPECT_EQ(aServer.WaitForEnd(5), iCode);
        EXPECT_EQ(aServer.GetOutput().back(), '\n');
        EXPECT_EQ(aServer.GetLog().back(), '\n');
    }
}

TEST(Fault, TheConsoleMayCloseOrFillUp)
{
    for (const bool bCloses : {true, false})
    {
        CServerProcess aServer;
        int aiPipe[2] = {-1, -1};
        ASSERT_EQ(pipe2(aiPipe, O_CLOEXEC), 0);
        aServer.Start({}, "", [&] { dup2(aiPipe[1], 1); });
        close(aiPipe[1]);
        char cFirst = 0;
        ASSERT_EQ(read(aiPipe[0], &cFirst, 1), 1);
        if (bCloses) close(aiPipe[0]);
        if (bCloses) ExpectSmallJob(aServer);
        CRawClient aClient(aServer.GetPort());
        for (int i = 0; i < 3000; ++i)  // more than a pipe holds
            ASSERT_TRUE(aClient.Send({Msg::eLog}));
        std::this_thread::sleep_for(100ms);
        EXPECT_TRUE(aServer.IsRunning());
        // The thread sanitizer writes to the console before the end.
        if (g_bThread && !bCloses) continue;
        kill(aServer.GetPid(), SIGTERM);
        EXPECT_EQ(aServer.WaitForEnd(), 0);
        if (!bCloses) close(aiPipe[0]);
    }
}

/// A number of /proc/PID/status, KiB.
long ReadStatus(const CServerProcess& rServer, const std::string& strKey)
{
    const std::string strPath = "/proc/" + std::to_string(rServer.GetPid()) + "/status";
    const std::string strText = ReadText(strPath);
    return std::stol(strText.substr(strText.find(strKey) + strKey.size() + 1));
}

long CountDescriptors(const CServerProcess& rServer)
{
    return std::distance(
        fs::directory_iterator("/proc/" + std::to_string(rServer.GetPid()) + "/fd"), {});
}

/// Time that the process has computed so far, clock ticks.
long ReadTicks(const CServerProcess& rServer)
{
    std::istringstream aText(ReadText("/proc/" + std::to_string(rServer.GetPid()) + "/stat"));
    std::string strSkipped;
    for (int i = 0; i < 13; ++i) aText >> strSkipped;
    long lUser = 0, lSystem = 0;
    aText >> lUser >> lSystem;
    return lUser + lSystem;
}

void SetLimit(pid_t iPid, __rlimit_resource eWhat, rlim_t tLimit)
{
    rlimit aLimit = {};
    ASSERT_EQ(prlimit(iPid, eWhat, nullptr, &aLimit), 0);
    aLimit.rlim_cur = std::min(tLimit, aLimit.rlim_max);
    ASSERT_EQ(prlimit(iPid, eWhat, &aLimit, nullptr), 0);
}

/// Name of today's log as the server will make it.
fs::path GuessLog(const CServerProcess& rServer)
{
    const std::time_t tNow = std::time(nullptr);
    const std::tm aNow = *std::localtime(&tNow);
    std::ostringstream aName;
    aName << "gpu" << aNow.tm_mon + 1 << aNow.tm_mday << aNow.tm_year + 1900 << ".log";
    return rServer.GetHome() / "temp" / aName.str();
}

TEST(Fault, ALogThatCannotBeWrittenCostsNothingElse)
{
    const std::pair<void (*)(const CServerProcess&), int> aCases[] = {
        {[](const CServerProcess& r) { fs::create_symlink("/dev/full", GuessLog(r)); }, 2},
        {[](const CServerProcess& r) { fs::create_directory(GuessLog(r)); }, 0},
        {[](const CServerProcess& r) { fs::remove(r.GetHome() / "temp"); }, 0}};
    for (const auto& [pfnBreak, iErrors] : aCases)  // lines that say so, for each time it is opened
    {
        CServerProcess aServer;
        aServer.Start();
        pfnBreak(aServer);
        ExpectSmallJob(aServer);
        ASSERT_TRUE(aServer.WaitFor("Info: Client connection has been closed.", 2));
        EXPECT_EQ(aServer.Count("Error: The log file cannot be written"), iErrors);
        EXPECT_EQ(aServer.Count("Error: "), iErrors + 1);  // the client just goes
    }
}

TEST(Fault, ALogThatWasCutOffGoesOnWithAWholeLine)
{
    CServerProcess aServer;
    aServer.Start({}, "", [] { SetLimit(0, RLIMIT_FSIZE, 700); });
    ExpectSmallJob(aServer);
    CRawClient aClient(aServer.GetPort());
    ASSERT_EQ(aClient.Ask({Msg::eServerProp}), 0u);
    ASSERT_EQ(ReadText(GuessLog(aServer)).size(), 700u);
    ASSERT_NE(aServer.GetLog().back(), '\n');  // or choose another limit
    SetLimit(aServer.GetPid(), RLIMIT_FSIZE, RLIM_INFINITY);
    ASSERT_EQ(aClient.Ask({Msg::eVolSize, {1, 1, 1}}), 0u);
    EXPECT_EQ(aServer.GetLog().substr(700, 36), "\nInfo: Received packet. Msg: VOLSIZE");
}

TEST(Fault, ClientsWaitWhileDescriptorsAreShort)
{
    if (g_bAddress) GTEST_SKIP() << "the sanitizer needs descriptors for its checks";
    const std::string strReason = "Error: A client has to wait: Too many open files.";
    constexpr rlim_t tConsoleAndPort = 4;
    CServerProcess aServer;
    aServer.Start();
    ASSERT_TRUE(aServer.WaitFor("Info: GPU 0 is used"));  // the port is opened next
    while (aServer.IsRunning() && CountDescriptors(aServer) < long(tConsoleAndPort))
        std::this_thread::sleep_for(5ms);
    for (const int iTimes : {1, 2})  // the very first client and one after others
    {
        SetLimit(aServer.GetPid(), RLIMIT_NOFILE, tConsoleAndPort);
        CRawClient aClient(aServer.GetPort());
        ASSERT_TRUE(aClient.Send({Msg::eServerProp}));
        ASSERT_TRUE(aServer.WaitFor(strReason, iTimes));
        const long lBefore = ReadTicks(aServer);
        EXPECT_TRUE(aClient.IsSilent(1.0));
        EXPECT_LT(ReadTicks(aServer) - lBefore, 0.3 * double(sysconf(_SC_CLK_TCK))) << "it spins";
        SetLimit(aServer.GetPid(), RLIMIT_NOFILE, tConsoleAndPort + 1);  // none for the log
        EXPECT_TRUE(aClient.Receive());
        aClient.Close();
        ExpectSmallJob(aServer);
        EXPECT_EQ(aServer.Count(strReason), iTimes);
        SetLimit(aServer.GetPid(), RLIMIT_NOFILE, 100);
        ExpectSmallJob(aServer);
        EXPECT_NE(aServer.GetLog().find("REPROJECT"), std::string::npos);
    }
}

TEST(Fault, RequestsAreRefusedWhileMemoryIsShort)
{
    if (g_bAddress || g_bThread) GTEST_SKIP() << "the sanitizer's memory is beyond all limits";
    int iFailedUploads = 0, iFailedJobs = 0;
    for (const rlim_t tMiB : {0, 4, 12, 24, 48})
    {
        SCOPED_TRACE(testing::Message() << tMiB << " MiB to spare");
        CServerProcess aServer;
        aServer.Start();
        CRawClient aClient(aServer.GetPort());
        ASSERT_EQ(aClient.Ask({Msg::eServerProp}), 0u);
        SetLimit(aServer.GetPid(), RLIMIT_AS,
                 1024 * rlim_t(ReadStatus(aServer, "VmSize:")) + (tMiB << 20));
        EXPECT_EQ(aClient.Ask({Msg::eVolSize, {512, 512, 512}}), 1u);
        EXPECT_EQ(aServer.Count("Error: VOLSIZE: out of memory"), 1);
        UploadJob(aClient, 256, 2);
        iFailedUploads += aServer.Count("Error: VOLSIZE: out of memory") - 1;
        const std::uint32_t uiFailed = aClient.Ask({Msg::eReconstruct});
        EXPECT_EQ(aServer.Count("Error: RECONSTRUCT: "), int(uiFailed));
        iFailedJobs += aServer.Count("no memory for ");
        EXPECT_EQ(aClient.Ask({Msg::eReconStatGet, {0}}), uiFailed) << "sums of a job that failed";
        aClient.Close();
        SetLimit(aServer.GetPid(), RLIMIT_AS, RLIM_INFINITY);
        ExpectSmallJob(aServer);
    }
    EXPECT_GT(iFailedUploads, 0);
    EXPECT_GT(iFailedJobs, 0);
}
}  // namespace
