// Clients that go, systems that run out: the server says why and serves the next client.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <sstream>
#include <thread>

#include "tests/wire/RawClient.h"
#include "tests/wire/ServerProcess.h"

using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool g_bSanitized = true;
#else
constexpr bool g_bSanitized = false;
#endif

/// A session of its own: the sums along Z of rows of 4 and of 8, seen at 0 degrees.
void ExpectSmallJob(const CServerProcess& rServer)
{
    CRawClient aClient(rServer.GetPort());
    EXPECT_EQ(aClient.Ask({Msg::eProjSize, {2, 2, 1}}), 0u);
    EXPECT_EQ(aClient.Ask({Msg::eVolSize, {2, 2, 1}}), 0u);
    EXPECT_EQ(aClient.Ask({Msg::eVolSet, {0}, ToWords({4, 4, 8, 8})}), 0u);
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

/// What a client may be in the middle of. Each leaves a server that waits for it or works for it.
enum EMoment
{
    eNothing,
    eHalfAHeader,
    eHalfASlice,
    eUnusedData,
    eHalfAReply,
    eRepliesThatNobodyReads,
    eJob,
    eMoments
};

void Enter(int iMoment, CRawClient& r, const CServerProcess& rServer)
{
    bool bDone = true;
    if (iMoment == eHalfAHeader) bDone = r.SendBytes("0123456789", 10);
    if (iMoment == eUnusedData) bDone = r.SendHeader({777}, ~0u) && r.SendBytes("abc", 3);
    if (iMoment == eHalfASlice || iMoment == eHalfAReply || iMoment == eRepliesThatNobodyReads)
        bDone = r.Ask({Msg::eVolSize, {1024, 1024, 2}}) == 0;
    if (iMoment == eHalfASlice)
        bDone = bDone && r.SendHeader({Msg::eVolSet, {1}}, 4 << 20) &&
                r.SendBytes(Words(1 << 19).data(), 2 << 20);
    const int iReplies = iMoment == eHalfAReply ? 1 : iMoment == eRepliesThatNobodyReads ? 50 : 0;
    for (int i = 0; i < iReplies; ++i) bDone = bDone && r.Send({Msg::eVolGet, {0}});
    if (iReplies > 0) bDone = bDone && !r.IsSilent(10);
    if (iMoment == eJob)
    {
        UploadJob(r, 512, 3);
        const int iJobs = rServer.Count("Info: Start reconstruction.");
        bDone = r.Send({Msg::eReconstruct}) &&
                rServer.WaitFor("Info: Start reconstruction.", iJobs + 1);
    }
    std::this_thread::sleep_for(20ms);  // until a socket is full
    EXPECT_TRUE(bDone) << "moment " << iMoment;
}

TEST(Fault, ClientsAndThenTheServerMayGoAtAnyMoment)
{
    const std::pair<int, int> aSignals[] = {{SIGTERM, 0}, {SIGINT, 130}, {SIGHUP, 129}};
    for (int i = 0; i < eMoments; ++i)
    {
        CServerProcess aServer;
        aServer.Start();
        for (const bool bReset : {true, false})
        {
            CRawClient aClient(aServer.GetPort());
            Enter(i, aClient, aServer);
            aClient.Close(bReset);
            ExpectSmallJob(aServer);
        }
        CRawClient aLast(aServer.GetPort());
        Enter(i, aLast, aServer);
        kill(aServer.GetPid(), aSignals[i % 3].first);
        EXPECT_EQ(aServer.WaitForEnd(5), aSignals[i % 3].second) << i;
        EXPECT_EQ(aServer.GetOutput().back(), '\n');
        EXPECT_EQ(aServer.GetLog().back(), '\n');
    }
}

TEST(Fault, IdleTimeoutDropsWhoeverStalls)
{
    CServerProcess aServer;
    aServer.Start({{"TALVEN_IDLE_TIMEOUT", "0.5"}, {"HOME", ""}});
    for (int i = 0; i < eJob; ++i)
    {
        CRawClient aStalled(aServer.GetPort());
        Enter(i, aStalled, aServer);
        const auto aStart = std::chrono::steady_clock::now();
        ExpectSmallJob(aServer);  // waits until the other one is dropped
        EXPECT_GT(std::chrono::steady_clock::now() - aStart, 300ms) << i;
    }
    CRawClient aSlow(aServer.GetPort());
    const Words vuiHeader = {Msg::eServerProp, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    for (int i = 0; i < 4; ++i, std::this_thread::sleep_for(200ms))
        EXPECT_TRUE(aSlow.SendBytes(&vuiHeader[4 * i], 16));
    EXPECT_TRUE(aSlow.Receive()) << "slow, but never idle";
    EXPECT_EQ(aServer.Count("log file"), 0) << "without a home there is none";
}

TEST(Fault, TheConsoleMayClose)
{
    CServerProcess aServer;
    int aiPipe[2] = {-1, -1};
    ASSERT_EQ(pipe2(aiPipe, O_CLOEXEC), 0);
    aServer.Start({}, "", [&] { dup2(aiPipe[1], 1); });
    close(aiPipe[0]);
    close(aiPipe[1]);
    ExpectSmallJob(aServer);
    ExpectSmallJob(aServer);
}

void SetLimit(pid_t iPid, __rlimit_resource eWhat, rlim_t tLimit)
{
    rlimit aLimit = {};
    ASSERT_EQ(prlimit(iPid, eWhat, nullptr, &aLimit), 0);
    aLimit.rlim_cur = std::min(tLimit, aLimit.rlim_max);
    ASSERT_EQ(prlimit(iPid, eWhat, &aLimit, nullptr), 0);
}

TEST(Fault, ALogThatCannotBeWrittenCostsNothingElse)
{
    // What befalls the log, and lines that say so, for each time it is opened.
    const std::pair<void (*)(const fs::path& rLog), int> aCases[] = {
        {[](const fs::path& r) { fs::remove(r), fs::create_symlink("/dev/full", r); }, 2},
        {[](const fs::path& r) { fs::remove(r), fs::create_directory(r); }, 0},
        {[](const fs::path& r) { fs::remove_all(r.parent_path()); }, 0}};
    for (const auto& [pfnBreak, iErrors] : aCases)
    {
        CServerProcess aServer;
        aServer.Start();
        ExpectSmallJob(aServer);
        ASSERT_TRUE(aServer.WaitFor("Info: Client connection has been closed.", 2));
        pfnBreak(fs::directory_iterator(aServer.GetHome() / "temp")->path());
        ExpectSmallJob(aServer);
        ASSERT_TRUE(aServer.WaitFor("Info: Client connection has been closed.", 4));
        EXPECT_EQ(aServer.Count("Error: The log file cannot be written"), iErrors);
        EXPECT_EQ(aServer.Count("Error: "), iErrors + 2);  // clients just go
    }
}

TEST(Fault, ALogThatWasCutOffGoesOnWithAWholeLine)
{
    CServerProcess aServer;
    aServer.Start({}, "", [] { SetLimit(0, RLIMIT_FSIZE, 600); });
    ExpectSmallJob(aServer);
    CRawClient aClient(aServer.GetPort());
    ASSERT_EQ(aClient.Ask({Msg::eServerProp}), 0u);
    ASSERT_EQ(aServer.GetLog().size(), 600u);
    ASSERT_NE(aServer.GetLog().back(), '\n');  // or choose another limit
    SetLimit(aServer.GetPid(), RLIMIT_FSIZE, RLIM_INFINITY);
    ASSERT_EQ(aClient.Ask({Msg::eVolSize, {1, 1, 1}}), 0u);
    EXPECT_EQ(aServer.GetLog().substr(600, 36), "\nInfo: Received packet. Msg: VOLSIZE");
}

/// Time that the process has computed so far, seconds.
double GetBusyTime(const CServerProcess& rServer)
{
    clockid_t iClock = 0;
    timespec aTime = {};
    clock_getcpuclockid(rServer.GetPid(), &iClock);
    clock_gettime(iClock, &aTime);
    return double(aTime.tv_sec) + 1e-9 * double(aTime.tv_nsec);
}

TEST(Fault, ClientsWaitWhileDescriptorsAreShort)
{
    if (g_bSanitized) GTEST_SKIP() << "the sanitizer needs descriptors for its checks";
    const std::string strReason = "Error: A client has to wait: Too many open files.";
    constexpr rlim_t tConsoleAndPort = 4;
    CServerProcess aServer;
    aServer.Start();
    CRawClient(aServer.GetPort()).Ask({Msg::eServerProp});
    for (const int iTimes : {1, 2})
    {
        SetLimit(aServer.GetPid(), RLIMIT_NOFILE, tConsoleAndPort);
        CRawClient aClient(aServer.GetPort());
        ASSERT_TRUE(aClient.Send({Msg::eServerProp}));
        ASSERT_TRUE(aServer.WaitFor(strReason, iTimes));
        const double dBefore = GetBusyTime(aServer);
        EXPECT_TRUE(aClient.IsSilent(1.0));
        EXPECT_LT(GetBusyTime(aServer) - dBefore, 0.3) << "it spins";
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
    if (g_bSanitized) GTEST_SKIP() << "the sanitizer's memory is beyond all limits";
    int iFailedUploads = 0, iFailedJobs = 0;
    for (const rlim_t tKiB : {0, 4096, 10500, 11000, 12288, 49152})
    {
        CServerProcess aServer;
        // One arena: others have reserved memory before, which hides the limit.
        aServer.Start({{"MALLOC_ARENA_MAX", "1"}});
        CRawClient aClient(aServer.GetPort());
        ASSERT_EQ(aClient.Ask({Msg::eServerProp}), 0u);
        rlim_t tPages = 0;
        std::istringstream(ReadText("/proc/" + std::to_string(aServer.GetPid()) + "/statm")) >>
            tPages;
        SetLimit(aServer.GetPid(), RLIMIT_AS, tPages * rlim_t(getpagesize()) + (tKiB << 10));
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
