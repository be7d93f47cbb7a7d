// Who can reach a private server, and what it leaves.

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <set>
#include <sstream>

#include "Support.h"
#include "talven/ServerLink.h"

namespace talven::test
{
namespace
{

namespace fs = std::filesystem;

constexpr uid_t g_uiNobody = 65534;

/// What the descriptors of a process are: "socket:[1234]", "/tmp/file".
std::set<std::string> ListDescriptors(pid_t iPid)
{
    std::set<std::string> aAll;
    std::error_code aIgnored;
    for (const auto& rEntry : fs::directory_iterator("/proc/" + std::to_string(iPid) + "/fd"))
        aAll.insert(fs::read_symlink(rEntry.path(), aIgnored).string());
    return aAll;
}

/// Sockets of the process that listen to a protocol (state 0A), "socket:[1234]".
std::set<std::string> ListListening(pid_t iPid, const std::string& strProtocol)
{
    const std::set<std::string> aOpen = ListDescriptors(iPid);
    std::set<std::string> aFound;
    std::istringstream aTable(ReadFile("/proc/" + std::to_string(iPid) + "/net/" + strProtocol));
    for (std::string strLine; std::getline(aTable, strLine);)
    {
        std::istringstream aLine(strLine);
        const std::vector<std::string> vstrWords{std::istream_iterator<std::string>(aLine), {}};
        if (vstrWords.size() < 10 || vstrWords[3] != "0A") continue;
        const std::string strSocket = "socket:[" + vstrWords[9] + "]";
        if (aOpen.contains(strSocket)) aFound.insert(strSocket);
    }
    return aFound;
}

/// What connecting to the file gives, as the user given: 0 or an error.
int ConnectAs(uid_t uiUser, const std::string& strFile)
{
    const pid_t iChild = fork();
    if (iChild == 0)
    {
        sockaddr_un aAddress{};
        aAddress.sun_family = AF_UNIX;
        strncpy(aAddress.sun_path, strFile.c_str(), sizeof(aAddress.sun_path) - 1);
        if (uiUser != geteuid() && setuid(uiUser) != 0) _exit(EPERM);
        const int iSocket = socket(AF_UNIX, SOCK_STREAM, 0);
        _exit(connect(iSocket, reinterpret_cast<sockaddr*>(&aAddress), sizeof(aAddress)) == 0
                  ? 0
                  : errno);
    }
    int iStatus = -1;
    waitpid(iChild, &iStatus, 0);
    return WEXITSTATUS(iStatus);
}

class ClientPrivateServer : public testing::Test
{
protected:
    ClientPrivateServer()
    {
        setenv("TALVEN_SERVER", TALVEN_SERVER_PROGRAM, 1);
        mUse(m_aDir / "tmp");
        fs::permissions(m_aDir / "", fs::perms(0755));
    }
    ~ClientPrivateServer() override { unsetenv("TMPDIR"); }
    /// The temporary directory from now on.
    void mUse(const std::string& strPath)
    {
        fs::create_directories(strPath);
        setenv("TMPDIR", strPath.c_str(), 1);
        m_strTemporary = strPath;
    }
    std::set<std::string> mList() const
    {
        std::set<std::string> aNames;
        for (const auto& rEntry : fs::directory_iterator(m_strTemporary))
            aNames.insert(rEntry.path().filename());
        return aNames;
    }
    void mStart() { ASSERT_TRUE(m_aServer.Start({}, m_aSession)) << m_aServer.GetError(); }

    CTempDir m_aDir;
    std::string m_strTemporary;
    CPrivateServer m_aServer;
    CSession m_aSession;
};

TEST_F(ClientPrivateServer, OpensNoPort)
{
    // The own socket, to see that the list is one.
    const int iSocket = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(listen(iSocket, 1), 0);
    EXPECT_EQ(ListListening(getpid(), "tcp").size(), 1u);
    close(iSocket);

    mStart();
    EXPECT_TRUE(ListListening(m_aServer.GetPid(), "tcp").empty());
    EXPECT_TRUE(ListListening(m_aServer.GetPid(), "tcp6").empty());
    ASSERT_EQ(mList().size(), 1u);
    const std::string strFolder = m_strTemporary + "/" + *mList().begin();
    struct stat aStat
    {
    };
    ASSERT_EQ(stat(strFolder.c_str(), &aStat), 0);
    EXPECT_EQ(aStat.st_mode & 07777, 0700u);
    EXPECT_EQ(ConnectAs(geteuid(), strFolder + "/socket"), ENOENT) << "even to us";

    // A process forked from the client does not keep the folder from being swept.
    EXPECT_TRUE(ListDescriptors(m_aServer.GetPid()).contains(strFolder + "/lock"));
    EXPECT_FALSE(ListDescriptors(getpid()).contains(strFolder + "/lock"));
    m_aServer.Stop();
    EXPECT_TRUE(mList().empty());
}

TEST_F(ClientPrivateServer, IsOutOfReachOfOtherUsers)
{
    if (geteuid() != 0) GTEST_SKIP() << "only root can become another user";
    mStart();
    const std::string strFolder = m_strTemporary + "/" + *mList().begin();
    EXPECT_EQ(ConnectAs(g_uiNobody, strFolder + "/socket"), EACCES);
    EXPECT_EQ(ConnectAs(g_uiNobody, m_strTemporary + "/socket"), ENOENT) << "outside";
}

TEST_F(ClientPrivateServer, HasTheDevicesThatAreExpected)
{
    setenv("TALVEN_CORES", "7", 1);  // the server of a system, not ours
    for (const auto& [iDevices, iCores] :
         {std::pair(0, 0), {0, 3}, {2, 0}, {2, 5}, {4, 1}, {0, 18}, {16, 0}})
    {
        SCOPED_TRACE(testing::Message() << iDevices << " devices, " << iCores << " cores");
        ServerOptions aOptions;
        aOptions.strBackend = "host";
        aOptions.iDevices = iDevices;
        aOptions.iCores = iCores;
        ASSERT_TRUE(m_aServer.Start(aOptions, m_aSession)) << m_aServer.GetError();
        const std::string strOutput =
            ReadFile(m_strTemporary + "/" + *mList().begin() + "/output.txt");
        int iUsed = 0;
        for (std::size_t t = 0; (t = strOutput.find("is used for", t)) != std::string::npos; ++t)
            ++iUsed;
        EXPECT_EQ(iUsed, aOptions.EstimateDevices()) << strOutput;
        EXPECT_TRUE(iCores != 3 || iUsed == 3);
    }
    unsetenv("TALVEN_CORES");
}

TEST_F(ClientPrivateServer, StartsBelowALongPath)
{
    for (const std::size_t tBytes : {75, 76, 77, 78, 79, 80, 81, 82, 83, 84, 85, 86, 120, 250})
    {
        const std::string strStart = m_aDir / "";
        mUse(strStart + std::string(std::max(tBytes, strStart.size() + 1) - strStart.size(), 'x'));
        mStart();
        EXPECT_EQ(mList().size(), 1u) << m_strTemporary;
        m_aServer.Stop();
        EXPECT_TRUE(mList().empty()) << m_strTemporary;
    }
    setenv("TMPDIR", (m_aDir / "none").c_str(), 1);
    EXPECT_FALSE(m_aServer.Start({}, m_aSession));
    EXPECT_TRUE(m_aServer.GetError().starts_with(m_aDir / "none/talven-private-"));
}

TEST_F(ClientPrivateServer, SweepsWhatWasLeftAndNothingElse)
{
    const auto Make = [&](const std::string& strName, std::initializer_list<const char*> aFiles,
                          unsigned uiMode = 0700)
    {
        const std::string strFolder = m_strTemporary + "/" + strName;
        fs::create_directory(strFolder);
        for (const char* pcFile : aFiles) WriteFile(strFolder + "/" + pcFile, "x");
        fs::permissions(strFolder, fs::perms(uiMode));
        return strFolder;
    };
    mStart();  // in use
    Make("talven-private-killed", {"lock", "output.txt", "socket"});
    Make("talven-private-crash", {"lock", "output.txt", "core"});
    const std::string strSomething = Make("something", {"lock", "output.txt"});
    fs::create_symlink(strSomething, m_strTemporary + "/talven-private-linked");
    Make("talven-private-new", {"lock.new"});
    Make("talven-private-open", {"lock"}, 0755);
    WriteFile(m_strTemporary + "/talven-private-file", "x");
    const uid_t uiTheirs = geteuid() == 0 ? g_uiNobody : geteuid();
    const std::string strTheirs =
        Make("talven-private-theirs", {geteuid() == 0 ? "lock" : "theirs"});
    EXPECT_EQ(chown(strTheirs.c_str(), uiTheirs, gid_t(-1)), 0);
    std::set<std::string> aKept = mList();
    aKept.erase("talven-private-killed");

    CPrivateServer aNext;
    CSession aSession;
    ASSERT_TRUE(aNext.Start({}, aSession)) << aNext.GetError();
    aNext.Stop();
    EXPECT_EQ(mList(), aKept);
    EXPECT_EQ(ReadFile(m_strTemporary + "/talven-private-crash/core"), "x");
    EXPECT_EQ(ReadFile(strSomething + "/lock"), "x") << "behind a link";
    std::uint64_t ulMemory = 0;
    EXPECT_TRUE(m_aSession.GetServerMemory(ulMemory)) << "of the server in use";
    EXPECT_NE(m_aServer.GetServerInfo().find("Backend "), std::string::npos);
}

}  // namespace
}  // namespace talven::test
