// Servers elsewhere: lists of them, busy ones, ones that are lost in the middle, ones behind ssh.

#include <arpa/inet.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include <array>

#include "Program.h"

namespace talven::test
{
namespace
{

/// "127.0.0.1:PORT" of a socket; \param usPort  0: its own
sockaddr_in MakeAddress(int iPort)
{
    sockaddr_in aAddress{};
    aAddress.sin_family = AF_INET;
    aAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    aAddress.sin_port = htons(std::uint16_t(iPort));
    return aAddress;
}

/// A listening socket whose clients get no answer: to them, a busy server.
class CListener
{
public:
    CListener()
    {
        sockaddr_in aAddress = MakeAddress(0);
        socklen_t iBytes = sizeof(aAddress);
        EXPECT_EQ(bind(m_iSocket, reinterpret_cast<sockaddr*>(&aAddress), iBytes), 0);
        EXPECT_EQ(listen(m_iSocket, 5), 0);
        getsockname(m_iSocket, reinterpret_cast<sockaddr*>(&aAddress), &iBytes);
        m_iPort = ntohs(aAddress.sin_port);
    }
    ~CListener() { Close(); }
    CListener(const CListener&) = delete;
    CListener& operator=(const CListener&) = delete;
    void Close()
    {
        if (m_iSocket != -1) close(m_iSocket);
        m_iSocket = -1;
    }
    int Accept() const { return accept(m_iSocket, nullptr, nullptr); }
    int GetPort() const { return m_iPort; }
    std::string GetName() const { return "127.0.0.1:" + std::to_string(m_iPort); }

private:
    int m_iSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int m_iPort = 0;
};

/// Stands between one client and a server, and is gone when so many bytes have passed.
class CBrokenWire
{
public:
    CBrokenWire(int iServerPort, std::size_t tUp, std::size_t tDown)
        : m_atLeft{tUp, tDown}, m_aThread([this, iServerPort] { mRun(iServerPort); })
    {
    }
    ~CBrokenWire() { m_aThread.join(); }
    CBrokenWire(const CBrokenWire&) = delete;
    CBrokenWire& operator=(const CBrokenWire&) = delete;
    std::string GetName() const { return m_aListener.GetName(); }

private:
    void mRun(int iServerPort)
    {
        const sockaddr_in aServer = MakeAddress(iServerPort);
        pollfd aEnds[2] = {{m_aListener.Accept(), POLLIN, 0},
                           {socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), POLLIN, 0}};
        EXPECT_EQ(
            connect(aEnds[1].fd, reinterpret_cast<const sockaddr*>(&aServer), sizeof(aServer)), 0);
        std::vector<char> vcBytes(4096);
        bool bOpen = true;
        while (bOpen && poll(aEnds, 2, -1) > 0)
            for (std::size_t i = 0; i < 2 && bOpen; ++i)
            {
                if (aEnds[i].revents == 0) continue;
                const ssize_t iGot = read(aEnds[i].fd, vcBytes.data(), vcBytes.size());
                bOpen =
                    iGot > 0 && std::size_t(iGot) < m_atLeft[i] &&
                    send(aEnds[1 - i].fd, vcBytes.data(), std::size_t(iGot), MSG_NOSIGNAL) == iGot;
                m_atLeft[i] -= std::size_t(std::max<ssize_t>(iGot, 0));
            }
        m_aListener.Close();
        for (const pollfd& rEnd : aEnds) close(rEnd.fd);
    }

    CListener m_aListener;
    std::array<std::size_t, 2> m_atLeft;  // to the server, to the client
    std::thread m_aThread;                // last: it uses the others
};

class ClientServers : public CProgramTest
{
protected:
    /// `talven serve` on a free port.
    void mServe()
    {
        {
            const CListener aFree;
            m_iPort = aFree.GetPort();
        }
        m_strServer = "127.0.0.1:" + std::to_string(m_iPort);
        m_iServer =
            mStart("serve --bind 127.0.0.1 --port " + std::to_string(m_iPort), "exec >serve.txt");
        ASSERT_TRUE(Eventually([&] { return mWait(mStart("info --server " + m_strServer)) == 0; }))
            << m_strErr;
    }
    ~ClientServers() override
    {
        if (m_iServer != -1 && kill(m_iServer, SIGTERM) == 0) mWait(m_iServer);
    }
    /// Which files of the last job were the same as those that mKeep() kept.
    void mKeep()
    {
        for (const std::string strName : {"rec", "rec_even", "rec_odd"})
            std::filesystem::rename(m_aDir / (strName + ".mrc"), m_aDir / ("kept_" + strName));
    }
    void mExpectKept(const std::string& strWhat)
    {
        for (const std::string strName : {"rec", "rec_even", "rec_odd"})
            EXPECT_TRUE(ReadFile(m_aDir / (strName + ".mrc")) ==
                        ReadFile(m_aDir / ("kept_" + strName)))
                << strWhat << ": " << strName;
    }

    const std::string m_strJob = g_strReconstruct + "--iterations 2 --halves even-odd";
    int m_iPort = 0;
    pid_t m_iServer = -1;
    std::string m_strServer;
};

TEST_F(ClientServers, AServerLostInTheMiddleIsReplacedByTheNext)
{
    mServe();
    mRun(m_strJob);
    mKeep();
    constexpr std::size_t tAll = std::size_t(1) << 40;
    // In the upload (of 0.6 MB), in the download (0.6 MB), in that of the first half.
    for (const auto& [tUp, tDown] : {std::pair{std::size_t(300'000), tAll},
                                     {tAll, std::size_t(300'000)},
                                     {tAll, std::size_t(800'000)}})
    {
        const CBrokenWire aWire(m_iPort, tUp, tDown);
        const std::string strOut =
            mRun(m_strJob + " --server " + aWire.GetName() + "," + m_strServer);
        EXPECT_NE(strOut.find(aWire.GetName() + " was lost: "), std::string::npos) << strOut;
        EXPECT_NE(strOut.find("; the job starts again on " + m_strServer), std::string::npos);
        mExpectKept(strOut);
    }
    WriteFile(m_aDir / "rec.mrc", "precious");
    const CBrokenWire aOne(m_iPort, 300'000, tAll), aTwo(m_iPort, tAll, 90'000);
    const std::string strList = aOne.GetName() + "," + aTwo.GetName();
    mExpectFailure(mStart(m_strJob + " --server " + strList + ",127.0.0.1:1"),
                   "cannot reach a server at 127.0.0.1:1: ", 75);
    for (const std::string& rName : {aOne.GetName(), aTwo.GetName()})
        EXPECT_NE(m_strErr.find(rName + " was lost: "), std::string::npos) << m_strErr;
}

TEST_F(ClientServers, AJobGoesToTheServerThatIsFree)
{
    mServe();
    const CListener aBusy;
    const std::string strBusy = aBusy.GetName();
    mExpectFailure(mStart(g_strReconstruct + "--wait 0.2 --server " + strBusy),
                   strBusy + " is busy: no answer for 1 s", 75);
    mExpectFailure(mStart(g_strReconstruct + "--wait 1.5 --server 127.0.0.1:1," + strBusy),
                   "127.0.0.1:1: Connection refused; " + strBusy + " is busy: no answer for 1.5 s",
                   75);
    const std::string strList = "127.0.0.1:1," + strBusy + ", " + m_strServer;
    const std::string strOut = mRun("info --server '" + strList + "'");
    EXPECT_NE(strOut.find("127.0.0.1:1: Connection refused; " + m_strServer + " takes the job"),
              std::string::npos)
        << strOut;
    EXPECT_EQ(mJson("info --server '" + strList + "'")["server"], m_strServer);
    // None is free: the one that becomes free first.
    const sockaddr_in aServer = MakeAddress(m_iPort);
    const int iOther = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(connect(iOther, reinterpret_cast<const sockaddr*>(&aServer), sizeof(aServer)), 0);
    const pid_t iWaiting = mStart("info --json --server " + strBusy + "," + m_strServer);
    std::this_thread::sleep_for(std::chrono::seconds(3));
    EXPECT_EQ(waitpid(iWaiting, nullptr, WNOHANG), 0) << "it does not wait";
    close(iOther);
    EXPECT_EQ(mWait(iWaiting), 0) << m_strErr;
    EXPECT_NE(m_strOut.find(m_strServer), std::string::npos) << m_strOut;
}

/// With an sshd of the test's own, whose PATH has a talven.
class ClientSsh : public ClientServers
{
protected:
    void SetUp() override
    {
        if (std::system("test -x /usr/sbin/sshd && command -v ssh ssh-keygen >/dev/null") != 0)
            GTEST_SKIP() << "no OpenSSH server and client on this machine";
        {
            const CListener aFree;
            m_iSshPort = aFree.GetPort();
        }
        const std::string strDir = m_aDir / "ssh";
        const std::string strMake =
            "set -e; mkdir -p " + strDir + "/bin; cd " + strDir +
            "; mkdir -p /run/sshd || true;"
            "for key in host mine other; do ssh-keygen -q -t ed25519 -N '' -f $key; done;"
            "printf '#!/bin/sh\\necho $$ >>" +
            strDir +
            "/pids\\nexec " TALVEN_PROGRAM
            " \"$@\"\\n' >bin/talven;"
            "printf '#!/bin/sh\\nexec ssh -F none -i " +
            strDir + "/${KEY:-mine} -o UserKnownHostsFile=" + strDir +
            "/known -o StrictHostKeyChecking=accept-new -o IdentitiesOnly=yes \"$@\"\\n' >ssh;"
            "chmod +x bin/talven ssh";
        WriteFile(m_aDir / "make.sh", strMake);
        ASSERT_EQ(std::system(("sh " + m_aDir / "make.sh").c_str()), 0);
        WriteFile(strDir + "/conf",
                  "Port " + std::to_string(m_iSshPort) + "\nListenAddress 127.0.0.1\nHostKey " +
                      strDir + "/host\nPidFile none\nAuthorizedKeysFile " + strDir +
                      "/mine.pub\nStrictModes no\nUsePAM no\nPasswordAuthentication no\n"
                      "KbdInteractiveAuthentication no\nLogLevel ERROR\nSetEnv PATH=" +
                      strDir + "/bin:/usr/bin:/bin TMPDIR=" + m_aDir / "tmp" +
                      " TALVEN_SERVER=" TALVEN_SERVER_PROGRAM "\n");
        setenv("TALVEN_SSH", (strDir + "/ssh").c_str(), 1);
        m_iSshd = fork();
        if (m_iSshd == 0)
        {
            const std::string strLog = strDir + "/log", strConf = strDir + "/conf";
            execl("/usr/sbin/sshd", "/usr/sbin/sshd", "-D", "-E", strLog.c_str(), "-f",
                  strConf.c_str(), nullptr);
        }
        const auto IsUp = [&]
        {
            const sockaddr_in aAddress = MakeAddress(m_iSshPort);
            const int iSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
            const int iResult =
                connect(iSocket, reinterpret_cast<const sockaddr*>(&aAddress), sizeof(aAddress));
            close(iSocket);
            return iResult == 0 || waitpid(m_iSshd, nullptr, WNOHANG) != 0;
        };
        ASSERT_TRUE(Eventually(IsUp));
        const std::string strLog = ReadFile(strDir + "/log");
        if (!strLog.empty()) GTEST_SKIP() << "sshd cannot run here: " << strLog;
    }
    ~ClientSsh() override
    {
        unsetenv("TALVEN_SSH");
        if (m_iSshd == -1) return;
        kill(m_iSshd, SIGTERM);
        waitpid(m_iSshd, nullptr, 0);
    }
    /// \param iPort  of the server there
    std::string mUrl(int iPort) const
    {
        return " --server ssh://127.0.0.1:" + std::to_string(m_iSshPort) + "/" +
               std::to_string(iPort);
    }
    /// Processes that served over ssh.
    std::vector<pid_t> mGetServed()
    {
        std::istringstream aPids(ReadFile(m_aDir / "ssh/pids"));
        return {std::istream_iterator<pid_t>(aPids), {}};
    }

    int m_iSshPort = 0;
    pid_t m_iSshd = -1;
};

TEST_F(ClientSsh, ItGoesToTheServerThereOrStartsOne)
{
    mRun(m_strJob);
    mKeep();
    mServe();
    mRun(m_strJob + mUrl(m_iPort));
    mExpectKept("with a server there");
    EXPECT_TRUE(mGetServed().empty());
    const int iNobody = [] { return CListener().GetPort(); }();
    mRun(m_strJob + mUrl(iNobody));
    mExpectKept("with none");
    EXPECT_EQ(mGetServed().size(), 1u);
    EXPECT_TRUE(Eventually([&] { return kill(mGetServed().at(0), 0) != 0; })) << "it serves on";

    WriteFile(m_aDir / "rec.mrc", "precious");
    mExpectFailure(mStart(m_strJob + mUrl(iNobody), "export KEY=other"),
                   ": Permission denied (publickey).", 75);
    mExpectFailure(mStart(m_strJob + mUrl(iNobody), "export TALVEN_SSH=/no/ssh"),
                   ": ssh cannot be run", 75);
    std::filesystem::remove(m_aDir / "ssh/bin/talven");
    mExpectFailure(mStart(m_strJob + mUrl(iNobody)), "no server can be started: ", 75);
}

TEST_F(ClientSsh, NothingComputesOnWhenTheClientIsKilled)
{
    const int iNobody = [] { return CListener().GetPort(); }();
    const pid_t iClient =
        mStart(g_strReconstruct + "--method em --iterations 100000" + mUrl(iNobody));
    const auto GetChild = [&]
    {
        if (mGetServed().empty()) return std::string();
        const std::string strPid = std::to_string(mGetServed()[0]);
        return ReadFile("/proc/" + strPid + "/task/" + strPid + "/children");
    };
    ASSERT_TRUE(Eventually([&] { return !GetChild().empty(); }));
    std::array<pollfd, 3> aEnds{};
    const pid_t iSsh = std::stoi(ReadFile("/proc/" + std::to_string(iClient) + "/task/" +
                                          std::to_string(iClient) + "/children"));
    const pid_t aiPids[] = {std::stoi(GetChild()), mGetServed()[0], iSsh};
    for (std::size_t i = 0; i < 3; ++i)
        aEnds[i] = {int(syscall(SYS_pidfd_open, aiPids[i], 0)), POLLIN, 0};
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    kill(iClient, SIGKILL);
    EXPECT_EQ(mWait(iClient), 128 + SIGKILL);
    for (pollfd& rEnd : aEnds)
    {
        EXPECT_EQ(poll(&rEnd, 1, 10'000), 1) << "it lives on";
        close(rEnd.fd);
    }
}

}  // namespace
}  // namespace talven::test
