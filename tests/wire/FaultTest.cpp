// Clients that go, systems that run out: the server says why and serves the next client.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <thread>

#include "tests/wire/Messages.h"
#include "tests/wire/RawClient.h"
#include "tests/wire/ServerProcess.h"

using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace
{
using Words = CRawClient::Words;
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
constexpr bool g_bSanitized = g_bAddress || g_bThread;  // memory is the sanitizer's

constexpr std::uint32_t g_uiEdge = 1024;  // of a large slice: 4 MiB

/// Two workers at most, so that the cases cost the same on every machine.
const CServerProcess::Environment g_aTwoDevices = {
    {"TALVEN_BUSY_GPUS", "2,3,4,5,6,7,8,9,10,11,12,13,14,15"}};

/// A session of its own with a small job: the sums along Z of a block of 1 in row 0 and of 2 in row
/// 1, four slices deep, seen at 0 degrees.
void ExpectSmallJob(int iPort)
{
    CRawClient aClient(iPort);
    ASSERT_TRUE(aClient.IsConnected());
    ASSERT_TRUE(aClient.Send(Msg::eByteOrder, {0x1234ABCDu}));
    ASSERT_TRUE(aClient.Ask(Msg::eProjSize, {5, 2, 1}));
    ASSERT_TRUE(aClient.Ask(Msg::eVolSize, {5, 2, 4}));
    const std::vector<float> vfSlice = {1, 1, 1, 1, 1, 2, 2, 2, 2, 2};
    for (std::uint32_t z = 0; z < 4; ++z)
        ASSERT_TRUE(aClient.Ask(Msg::eVolSet, {z}, CRawClient::ToWords(vfSlice)));
    const auto aDone = aClient.Ask(Msg::eReproject);
    ASSERT_TRUE(aDone);
    EXPECT_EQ(aDone->Field(5), 0u);
    const auto aProj = aClient.Ask(Msg::eProjGet, {0});
    ASSERT_TRUE(aProj);
    EXPECT_EQ(aProj->Floats(), (std::vector<float>{4, 4, 4, 4, 4, 8, 8, 8, 8, 8}));
    ASSERT_TRUE(aClient.Send(Msg::eQuit));
    EXPECT_TRUE(aClient.IsClosedByPeer());
}

/// A stack and a volume for a SART job of iIterations.
void UploadJob(CRawClient& rClient, std::uint32_t uiEdge, std::uint32_t uiIterations)
{
    constexpr std::uint32_t uiProjs = 30;
    Words vuiPairs;
    for (std::uint32_t i = 0; i < uiProjs; ++i)
        vuiPairs.insert(vuiPairs.end(), {Bits(4.0f * static_cast<float>(i) - 60.0f), 0});
    ASSERT_TRUE(rClient.Ask(Msg::eProjSize, {uiEdge, 64, uiProjs}, vuiPairs));
    ASSERT_TRUE(rClient.Ask(Msg::eVolSize, {uiEdge, 64, uiEdge / 2}));
    Words vuiOptions = {uiProjs};
    vuiOptions.insert(vuiOptions.end(), uiIterations, Bits(1.0f));
    ASSERT_TRUE(rClient.Ask(Msg::eReconOpt, {1, uiIterations, 1, 0, 1}, vuiOptions));
}

// What a client may be in the middle of. Each leaves a server that waits for it or works for it.
void SendHalfAHeader(CRawClient& rClient, CServerProcess&)
{
    ASSERT_TRUE(rClient.SendBytes("0123456789", 10));
}
void SendHalfASlice(CRawClient& rClient, CServerProcess&)
{
    ASSERT_TRUE(rClient.Ask(Msg::eVolSize, {g_uiEdge, g_uiEdge, 2}));
    ASSERT_TRUE(rClient.SendHeader(Msg::eVolSet, {1}, 4 * g_uiEdge * g_uiEdge));
    const Words vuiHalf(g_uiEdge * g_uiEdge / 2, Bits(1.0f));
    ASSERT_TRUE(rClient.SendBytes(vuiHalf.data(), 4 * vuiHalf.size()));
}
void SendPartOfUnusedData(CRawClient& rClient, CServerProcess&)
{
    ASSERT_TRUE(rClient.SendHeader(777, {}, 0xffffffffu));
    ASSERT_TRUE(rClient.SendBytes("abc", 3));
}
void StartShortJob(CRawClient& rClient, CServerProcess& rServer)
{
    UploadJob(rClient, 64, 3);
    const int iJobs = rServer.CountInOutput("Info: Start reconstruction.");
    ASSERT_TRUE(rClient.Send(Msg::eReconstruct));
    ASSERT_TRUE(rServer.WaitForOutput("Info: Start reconstruction.", iJobs + 1));
}
void StartLongJob(CRawClient& rClient, CServerProcess& rServer)
{
    UploadJob(rClient, 512, 1000);
    ASSERT_TRUE(rClient.Send(Msg::eReconstruct));
    ASSERT_TRUE(rServer.WaitForOutput("Info: Start reconstruction."));
    std::this_thread::sleep_for(100ms);
}
void ReadHalfAReply(CRawClient& rClient, CServerProcess&)
{
    ASSERT_TRUE(rClient.Ask(Msg::eVolSize, {g_uiEdge, g_uiEdge, 2}));
    ASSERT_TRUE(rClient.Send(Msg::eVolGet, {0}));
    EXPECT_FALSE(rClient.IsSilent(10));  // the reply has begun
}
void AskForMuchAndReadNothing(CRawClient& rClient, CServerProcess&)
{
    ASSERT_TRUE(rClient.Ask(Msg::eVolSize, {g_uiEdge, g_uiEdge, 2}));
    for (int i = 0; i < 50; ++i) ASSERT_TRUE(rClient.Send(Msg::eVolGet, {0}));
    EXPECT_FALSE(rClient.IsSilent(10));
    std::this_thread::sleep_for(50ms);  // until the socket is full
}
void SendNothing(CRawClient& rClient, CServerProcess&)
{
    ASSERT_TRUE(rClient.IsConnected());
}

struct Moment
{
    const char* pcWhat;
    void (*pfnEnter)(CRawClient& rClient, CServerProcess& rServer);
};

TEST(Fault, ClientsMayGoAtAnyMoment)
{
    CServerProcess aServer;
    aServer.Start(g_aTwoDevices);
    for (const auto& [pcWhat, pfnEnter] :
         {Moment{"nothing sent", SendNothing}, Moment{"half a header", SendHalfAHeader},
          Moment{"half a slice", SendHalfASlice},
          Moment{"four gigabytes of nothing", SendPartOfUnusedData}, Moment{"a job", StartShortJob},
          Moment{"half a reply", ReadHalfAReply},
          Moment{"replies that nobody reads", AskForMuchAndReadNothing}})
        for (const bool bReset : {false, true})
        {
            SCOPED_TRACE(testing::Message() << pcWhat << (bReset ? ", reset" : ", closed"));
            CRawClient aClient(aServer.GetPort());
            pfnEnter(aClient, aServer);
            bReset ? aClient.Reset() : aClient.Close();
            ExpectSmallJob(aServer.GetPort());
        }
    EXPECT_TRUE(aServer.IsRunning());
}

TEST(Fault, IdleTimeoutDropsWhoeverStalls)
{
    CServerProcess::Environment aEnvironment = g_aTwoDevices;
    aEnvironment["TALVEN_IDLE_TIMEOUT"] = "0.5";
    CServerProcess aServer;
    aServer.Start(aEnvironment);
    for (const auto& [pcWhat, pfnEnter] :
         {Moment{"nothing sent", SendNothing}, Moment{"half a header", SendHalfAHeader},
          Moment{"half a slice", SendHalfASlice},
          Moment{"replies that nobody reads", AskForMuchAndReadNothing}})
    {
        SCOPED_TRACE(pcWhat);
        CRawClient aStalled(aServer.GetPort());
        pfnEnter(aStalled, aServer);
        const auto aStart = Clock::now();
        ExpectSmallJob(aServer.GetPort());  // waits until the other one is dropped
        EXPECT_GT(Clock::now() - aStart, 300ms);
        EXPECT_LT(Clock::now() - aStart, 15s);
    }
    CRawClient aSlow(aServer.GetPort());  // sends a little often enough
    ASSERT_TRUE(aSlow.Ask(Msg::eVolSize, {5, 1, 1}));
    ASSERT_TRUE(aSlow.SendHeader(Msg::eVolSet, {0}, 20));
    const Words vuiSlice(5, Bits(1.0f));
    for (const std::uint32_t& rWord : vuiSlice)
    {
        std::this_thread::sleep_for(150ms);
        ASSERT_TRUE(aSlow.SendBytes(&rWord, 4));
    }
    const auto aReply = aSlow.Receive();
    ASSERT_TRUE(aReply);
    EXPECT_EQ(aReply->Field(5), 0u);
}

/// Many connections at once that all end before or soon after they are made.
void KnockAndLeave(int iPort, int iTimes)
{
    sockaddr_in aAddress = {};
    aAddress.sin_family = AF_INET;
    aAddress.sin_port = htons(static_cast<std::uint16_t>(iPort));
    aAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::vector<int> viSockets;
    for (int i = 0; i < iTimes; ++i)
    {
        viSockets.push_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
        connect(viSockets.back(), reinterpret_cast<sockaddr*>(&aAddress), sizeof aAddress);
    }
    for (const int iSocket : viSockets) close(iSocket);
}

TEST(Fault, CrowdsAreServedOneByOne)
{
    CServerProcess aServer;
    aServer.Start(g_aTwoDevices);
    ExpectSmallJob(aServer.GetPort());
    for (int iRound = 0; iRound < 3; ++iRound)
    {
        KnockAndLeave(aServer.GetPort(), 200);
        ExpectSmallJob(aServer.GetPort());
    }
    // As many as the queue takes wait, each gets its own session.
    std::vector<std::unique_ptr<CRawClient>> vpClients;
    for (int i = 0; i < 8; ++i)
    {
        vpClients.push_back(std::make_unique<CRawClient>(aServer.GetPort()));
        const auto uiSize = static_cast<std::uint32_t>(i + 1);
        ASSERT_TRUE(vpClients.back()->Send(Msg::eVolSize, {uiSize, 1, 1}));
        ASSERT_TRUE(vpClients.back()->Send(Msg::eVolGet, {0}));
    }
    EXPECT_TRUE(vpClients.back()->IsSilent(0.1));
    for (std::size_t i = 0; i < vpClients.size(); ++i)
    {
        SCOPED_TRACE(i);
        ASSERT_TRUE(vpClients[i]->Receive());
        const auto aSlice = vpClients[i]->Receive();
        ASSERT_TRUE(aSlice);
        EXPECT_EQ(aSlice->vuiData, Words(i + 1));
        i % 2 == 0 ? vpClients[i]->Close() : vpClients[i]->Reset();
    }
    ExpectSmallJob(aServer.GetPort());
}

std::string ReadText(const fs::path& rPath)
{
    std::ifstream aFile(rPath);
    std::ostringstream aText;
    aText << aFile.rdbuf();
    return aText.str();
}

fs::path FindLog(const CServerProcess& rServer)
{
    for (const auto& rEntry : fs::directory_iterator(rServer.GetHome() / "temp")) return rEntry;
    return {};
}

TEST(Fault, SignalsEndTheServerAtOnceWhateverItDoes)
{
    struct Case
    {
        Moment aMoment;
        int iSignal;
        int iCode;
    };
    for (const auto& [aMoment, iSignal, iCode] :
         {Case{{"no client", nullptr}, SIGTERM, 0}, Case{{"no client", nullptr}, SIGINT, 130},
          Case{{"no client", nullptr}, SIGHUP, 129}, Case{{"silent", SendNothing}, SIGTERM, 0},
          Case{{"upload", SendHalfASlice}, SIGTERM, 0}, Case{{"job", StartLongJob}, SIGTERM, 0},
          Case{{"job", StartLongJob}, SIGINT, 130},
          Case{{"unread replies", AskForMuchAndReadNothing}, SIGTERM, 0}})
    {
        SCOPED_TRACE(testing::Message() << aMoment.pcWhat << ", signal " << iSignal);
        CServerProcess aServer;
        aServer.Start(g_aTwoDevices);
        CRawClient aClient(aServer.GetPort());
        ASSERT_TRUE(aServer.WaitForOutput("Info: Client has been connected."));
        if (aMoment.pfnEnter)
            aMoment.pfnEnter(aClient, aServer);
        else
            aClient.Close();
        const auto aStart = Clock::now();
        ASSERT_EQ(kill(aServer.GetPid(), iSignal), 0);
        EXPECT_EQ(aServer.WaitForEnd(), iCode);
        EXPECT_LT(Clock::now() - aStart, 5s);
        EXPECT_EQ(aServer.GetOutput().back(), '\n');
        EXPECT_EQ(ReadText(FindLog(aServer)).back(), '\n');
    }
}

/// A server whose console is a pipe. \return the end to read from
int StartOnPipe(CServerProcess& rServer)
{
    int aiPipe[2] = {-1, -1};
    EXPECT_EQ(pipe2(aiPipe, O_CLOEXEC), 0);
    rServer.Start(g_aTwoDevices, "", [&] { dup2(aiPipe[1], 1); });
    close(aiPipe[1]);
    return aiPipe[0];
}

TEST(Fault, TheConsoleMayClose)
{
    CServerProcess aServer;
    const int iConsole = StartOnPipe(aServer);
    char cFirst = 0;
    ASSERT_EQ(read(iConsole, &cFirst, 1), 1);
    close(iConsole);
    ExpectSmallJob(aServer.GetPort());
    EXPECT_TRUE(aServer.IsRunning());
}

TEST(Fault, AConsoleThatNobodyReadsDoesNotDelayTheEnd)
{
    if (g_bThread) GTEST_SKIP() << "the sanitizer writes to the console before the end";
    CServerProcess aServer;
    const int iConsole = StartOnPipe(aServer);
    CRawClient aClient(aServer.GetPort());
    for (int i = 0; i < 3000; ++i) ASSERT_TRUE(aClient.Send(Msg::eLog));  // more than a pipe holds
    std::this_thread::sleep_for(100ms);
    kill(aServer.GetPid(), SIGTERM);
    EXPECT_EQ(aServer.WaitForEnd(), 0);
    close(iConsole);
}

/// A number from /proc/PID/status.
long ReadStatus(pid_t iPid, const std::string& strKey)
{
    std::ifstream aFile("/proc/" + std::to_string(iPid) + "/status");
    for (std::string strLine; std::getline(aFile, strLine);)
        if (strLine.starts_with(strKey + ":")) return std::stol(strLine.substr(strKey.size() + 1));
    return -1;
}

long CountDescriptors(pid_t iPid)
{
    return std::distance(fs::directory_iterator("/proc/" + std::to_string(iPid) + "/fd"), {});
}

/// Time that the process has computed so far, seconds.
double ReadCpuTime(pid_t iPid)
{
    std::istringstream aText(ReadText("/proc/" + std::to_string(iPid) + "/stat"));
    std::string strSkipped;
    for (int i = 0; i < 13; ++i) aText >> strSkipped;
    long lUser = 0, lSystem = 0;
    aText >> lUser >> lSystem;
    return static_cast<double>(lUser + lSystem) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

/// Name of today's log as the server will make it.
fs::path GuessLog(const CServerProcess& rServer)
{
    const std::time_t tNow = std::time(nullptr);
    std::tm aNow = {};
    localtime_r(&tNow, &aNow);
    return rServer.GetHome() / "temp" /
           ("gpu" + std::to_string(aNow.tm_mon + 1) + std::to_string(aNow.tm_mday) +
            std::to_string(aNow.tm_year + 1900) + ".log");
}

TEST(Fault, ALogThatCannotBeWrittenCostsNothingElse)
{
    const struct
    {
        const char* pcWhat;
        void (*pfnBreak)(const CServerProcess& rServer);
        int iErrors;  // lines that say so, one per client
    } aCases[] = {
        {"no space", [](const CServerProcess& r) { fs::create_symlink("/dev/full", GuessLog(r)); },
         2},
        {"a folder in its place",
         [](const CServerProcess& r) { fs::create_directory(GuessLog(r)); }, 0},
        {"no folder for it", [](const CServerProcess& r) { fs::remove(r.GetHome() / "temp"); }, 0},
    };
    for (const auto& [pcWhat, pfnBreak, iErrors] : aCases)
    {
        SCOPED_TRACE(pcWhat);
        CServerProcess aServer;
        aServer.Start(g_aTwoDevices);
        pfnBreak(aServer);
        ExpectSmallJob(aServer.GetPort());
        ASSERT_TRUE(aServer.WaitForOutput("Info: Client connection has been closed.", 2));
        EXPECT_EQ(aServer.CountInOutput("Error: The log file cannot be written"), iErrors);
        EXPECT_EQ(aServer.CountInOutput("Error: "), iErrors);
    }
}

void SetLimit(pid_t iPid, __rlimit_resource eWhat, rlim_t tLimit)
{
    rlimit aLimit = {};
    ASSERT_EQ(prlimit(iPid, eWhat, nullptr, &aLimit), 0);
    aLimit.rlim_cur = std::min(tLimit, aLimit.rlim_max);
    ASSERT_EQ(prlimit(iPid, eWhat, &aLimit, nullptr), 0);
}

TEST(Fault, ALogThatWasCutOffGoesOnWithAWholeLine)
{
    CServerProcess aServer;
    aServer.Start(g_aTwoDevices, "", [] { SetLimit(0, RLIMIT_FSIZE, 700); });
    ExpectSmallJob(aServer.GetPort());
    const fs::path aLog = FindLog(aServer);
    EXPECT_EQ(fs::file_size(aLog), 700u);
    ASSERT_NE(ReadText(aLog).back(), '\n');  // or choose another limit

    CRawClient aClient(aServer.GetPort());
    ASSERT_TRUE(aClient.Ask(Msg::eServerProp));
    SetLimit(aServer.GetPid(), RLIMIT_FSIZE, RLIM_INFINITY);
    ASSERT_TRUE(aClient.Ask(Msg::eVolSize, {1, 1, 1}));
    EXPECT_EQ(ReadText(aLog).substr(700, 36), "\nInfo: Received packet. Msg: VOLSIZE");
}

TEST(Fault, ClientsWaitWhileDescriptorsAreShort)
{
    if (g_bAddress) GTEST_SKIP() << "the sanitizer needs descriptors for its checks";
    const std::string strReason = "Error: A client has to wait: Too many open files.";
    constexpr rlim_t tConsoleAndPort = 4;
    CServerProcess aServer;
    aServer.Start(g_aTwoDevices);
    ASSERT_TRUE(aServer.WaitForOutput("Info: GPU 0 is used"));  // the port is opened next
    while (aServer.IsRunning() && CountDescriptors(aServer.GetPid()) < int(tConsoleAndPort))
        std::this_thread::sleep_for(5ms);
    for (const int iTimes : {1, 2})  // the very first client and one after others
    {
        SCOPED_TRACE(iTimes);
        const pid_t iPid = aServer.GetPid();
        SetLimit(iPid, RLIMIT_NOFILE, tConsoleAndPort);
        CRawClient aClient(aServer.GetPort());
        ASSERT_TRUE(aClient.Send(Msg::eServerProp));
        ASSERT_TRUE(aServer.WaitForOutput(strReason, iTimes));
        const double dBefore = ReadCpuTime(iPid);
        EXPECT_TRUE(aClient.IsSilent(1.0));
        EXPECT_LT(ReadCpuTime(iPid) - dBefore, 0.3) << "it spins";

        SetLimit(iPid, RLIMIT_NOFILE, tConsoleAndPort + 1);  // no log, no memory figures
        EXPECT_TRUE(aClient.Receive());
        aClient.Close();
        ExpectSmallJob(aServer.GetPort());
        EXPECT_EQ(aServer.CountInOutput(strReason), iTimes);

        SetLimit(iPid, RLIMIT_NOFILE, 100);
        ExpectSmallJob(aServer.GetPort());
        EXPECT_NE(ReadText(FindLog(aServer)).find("REPROJECT"), std::string::npos);
    }
}

TEST(Fault, RequestsAreRefusedWhileMemoryIsShort)
{
    if (g_bSanitized) GTEST_SKIP() << "the sanitizer reserves more than the limit leaves";
    int iFailedUploads = 0, iFailedJobs = 0;
    for (const rlim_t tMiB : {0, 4, 12, 24, 48})
    {
        SCOPED_TRACE(testing::Message() << tMiB << " MiB to spare");
        CServerProcess aServer;
        aServer.Start(g_aTwoDevices);
        CRawClient aClient(aServer.GetPort());
        ASSERT_TRUE(aClient.Ask(Msg::eServerProp));
        const long lKiB = ReadStatus(aServer.GetPid(), "VmSize");
        SetLimit(aServer.GetPid(), RLIMIT_AS, 1024 * static_cast<rlim_t>(lKiB) + (tMiB << 20));

        const auto aLarge = aClient.Ask(Msg::eVolSize, {512, 512, 512});
        ASSERT_TRUE(aLarge);
        EXPECT_EQ(aLarge->Field(5), 1u);
        EXPECT_GE(aServer.CountInOutput("Error: VOLSIZE: out of memory"), 1);
        UploadJob(aClient, 256, 2);
        iFailedUploads += aServer.CountInOutput("Error: VOLSIZE: out of memory") - 1;
        const auto aDone = aClient.Ask(Msg::eReconstruct);
        ASSERT_TRUE(aDone);
        EXPECT_EQ(aServer.CountInOutput("Error: RECONSTRUCT: "), int(aDone->Field(5)));
        iFailedJobs += aServer.CountInOutput("no memory for ");
        const auto aSums = aClient.Ask(Msg::eReconStatGet, {0});
        ASSERT_TRUE(aSums);
        EXPECT_EQ(aSums->Field(5), aDone->Field(5)) << "sums of a job that failed";

        aClient.Close();
        SetLimit(aServer.GetPid(), RLIMIT_AS, RLIM_INFINITY);
        ExpectSmallJob(aServer.GetPort());
    }
    EXPECT_GT(iFailedUploads, 0);
    EXPECT_GT(iFailedJobs, 0);
}

TEST(Fault, AThousandSessionsLeaveNothingBehind)
{
    const int iSessions = g_bSanitized ? 200 : 1000;
    CServerProcess aServer;
    aServer.Start(g_aTwoDevices);
    long lMemory = 0, lDescriptors = 0;
    for (int i = 1; i <= iSessions; ++i)
    {
        ExpectSmallJob(aServer.GetPort());
        ASSERT_TRUE(aServer.IsRunning());
        if (i == 100) lMemory = ReadStatus(aServer.GetPid(), "VmRSS");
        if (i == 100) lDescriptors = CountDescriptors(aServer.GetPid());
    }
    const long lMemoryEnd = ReadStatus(aServer.GetPid(), "VmRSS");
    const long lDescriptorsEnd = CountDescriptors(aServer.GetPid());
    std::printf("after 100 and %d sessions: %ld and %ld KiB, %ld and %ld descriptors\n", iSessions,
                lMemory, lMemoryEnd, lDescriptors, lDescriptorsEnd);
    EXPECT_LE(lDescriptorsEnd, lDescriptors + 1);  // the log may be open just now
    EXPECT_GE(lDescriptorsEnd, lDescriptors - 1);
    if (g_bSanitized) return;
    EXPECT_LT(lMemoryEnd, lMemory + 450) << "half a KiB for each session";
}
}  // namespace
