// How the program runs: interrupts, servers, terminals.

#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/syscall.h>

#include <algorithm>

#include "Program.h"

namespace talven::test
{
namespace
{

class ClientRun : public CProgramTest
{
protected:
    /// Whether the next client removes what private servers left, when the last of them is dead.
    bool mIsSwept()
    {
        return Eventually(
            [&]
            {
                mRun("info");
                return std::filesystem::is_empty(m_aDir / "tmp");
            });
    }
};

TEST_F(ClientRun, AnInterruptOrADeadServerLeavesNothing)
{
    // The client interrupted, its server dead, the client dead.
    for (const int iCase : {0, 1, 2})
    {
        const pid_t iClient = mStart(g_strReconstruct + "--method em --iterations 100000");
        const std::string strTask = std::to_string(iClient);
        const std::string strChildren = "/proc/" + strTask + "/task/" + strTask + "/children";
        ASSERT_TRUE(Eventually([&] { return !ReadFile(strChildren).empty(); }));
        const pid_t iServer = std::stoi(ReadFile(strChildren));
        pollfd aServerEnds = {int(syscall(SYS_pidfd_open, iServer, 0)), POLLIN, 0};
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        kill(iCase == 1 ? iServer : iClient, iCase == 0 ? SIGINT : SIGKILL);
        if (iCase == 2)
            EXPECT_EQ(mWait(iClient), 128 + SIGKILL);
        else
            mExpectFailure(iClient, iCase == 0 ? "interrupted" : "server ended with signal 9", 75);
        EXPECT_EQ(poll(&aServerEnds, 1, 10'000), 1) << "the server lives";
        EXPECT_EQ(std::filesystem::is_empty(m_aDir / "tmp"), iCase != 2);
        close(aServerEnds.fd);
    }
    EXPECT_TRUE(mIsSwept());
}

TEST_F(ClientRun, AnInterruptedRunKeepsItsLastIterate)
{
    const pid_t iClient = mStart(g_strReconstruct + "--iterations 100000 --checkpoint 1");
    EXPECT_TRUE(Eventually([&] { return ReadFile(m_aDir / "rec.mrc") != "precious"; }));
    kill(iClient, SIGINT);
    EXPECT_EQ(mWait(iClient), 0) << m_strErr;
    EXPECT_NE(m_strOut.find("; ended after "), std::string::npos) << m_strOut;
    EXPECT_EQ(mRead("rec.mrc").size(), 90u * 43 * 36) << m_aReader.GetError();
    WriteFile(m_aDir / "rec.mrc", "precious");
}

TEST_F(ClientRun, AnInterruptAtAnyTimeLeavesAWholeFileOrNone)
{
    int iRuns = 0, iKept = 0, iNone = 0;
    // From before the upload on, later and later until some are kept; every second one once more.
    for (int iDelay = 10; iKept < 3 && iDelay < 30000; iDelay += 5 + iDelay / 3, ++iRuns)
    {
        const auto Later = [](int iMilliseconds)
        { std::this_thread::sleep_for(std::chrono::milliseconds(iMilliseconds)); };
        WriteFile(m_aDir / "rec.mrc", "precious");
        const pid_t iClient = mStart(g_strReconstruct + "--iterations 100000 --mode 1");
        Later(iDelay);
        kill(iClient, SIGINT);
        if (iRuns % 2 == 1) Later(iRuns);
        if (iRuns % 2 == 1) kill(iClient, SIGINT);
        const int iExit = mWait(iClient);
        if (iExit == 0)
            iKept += mRead("rec.mrc").size() == 90u * 43 * 36;
        else
            iNone += ReadFile(m_aDir / "rec.mrc") == "precious";
    }
    EXPECT_EQ(iKept, 3);
    EXPECT_EQ(iKept + iNone, iRuns) << m_strErr;
    WriteFile(m_aDir / "rec.mrc", "precious");
    EXPECT_TRUE(mIsSwept());
}

TEST_F(ClientRun, AServerOfOneselfServesManyClients)
{
    const std::string strPort = std::to_string(20000 + getpid() % 20000);
    const pid_t iServer = mStart(
        "serve --port " + strPort + " --bind 127.0.0.1 --devices 1 --cores 3", "exec >serve.txt");
    const std::string strServer = " --server 127.0.0.1:" + strPort;
    ASSERT_TRUE(Eventually([&] { return mWait(mStart("info" + strServer)) == 0; })) << m_strErr;
    EXPECT_NE(m_strOut.find(" of device memory for jobs"), std::string::npos) << m_strOut;
    EXPECT_GT(mJson("info" + strServer)["memory_bytes"], 1 << 20);
    const std::string strConsole = ReadFile(m_aDir / "serve.txt");
    EXPECT_NE(strConsole.find(" 3 devices available"), std::string::npos) << strConsole;
    EXPECT_TRUE(strConsole.find("GPU 0 is used") < strConsole.size() &&
                strConsole.find("GPU 1 is used") > strConsole.size());
    // A box changes the result, and does not stay for the next client.
    std::vector<Floats> avfVolumes;
    for (const char* pcBox : {"", " --weight-box 0,0,30,9", ""})
    {
        mRun(g_strReconstruct + "--iterations 2" + strServer + pcBox);
        avfVolumes.push_back(mRead("rec.mrc"));
    }
    EXPECT_TRUE(avfVolumes[0] != avfVolumes[1] && avfVolumes[0] == avfVolumes[2]);
    kill(iServer, SIGTERM);
    EXPECT_EQ(mWait(iServer), 0);
}

TEST_F(ClientRun, ProgressIsShownOnATerminal)
{
    int iMaster = -1, iTerminal = -1;
    char acName[99];
    ASSERT_EQ(openpty(&iMaster, &iTerminal, acName, nullptr, nullptr), 0);
    EXPECT_EQ(mWait(mStart(g_strReconstruct + "--iterations 1", ":", acName)), 0);
    std::string strShown(1 << 16, '\0');
    strShown.resize(std::size_t(std::max<ssize_t>(0, read(iMaster, strShown.data(), 1 << 16))));
    for (const char* pcPart : {"\rupload     [", "##############################] 100 %  ",
                               "\rdownload   [", " MB/s\x1b[K", "\r\x1b[K"})
        EXPECT_NE(strShown.find(pcPart), std::string::npos) << pcPart;
    close(iMaster);
    close(iTerminal);
}

}  // namespace
}  // namespace talven::test
