// Limits of control groups: found in a folder that plays the root directory, and kept by client and
// server.

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>

#include "Machine/MachineLimits.h"
#include "Support.h"
#include "talven/Memory.h"
#include "talven/PrivateServer.h"

namespace talven::test
{
namespace
{

namespace fs = std::filesystem;

constexpr std::uint64_t g_ulNone = CMachineLimits::g_ulNone;
using Files = std::map<std::string, std::string>;

void WriteFiles(const std::string& strFolder, const Files& rFiles)
{
    for (const auto& [strName, strText] : rFiles)
    {
        fs::create_directories(fs::path(strFolder + "/" + strName).parent_path());
        WriteFile(strFolder + "/" + strName, strText);
    }
}

struct Case
{
    const char* pcWhat;
    std::string strGroups;  ///< /proc/self/cgroup
    Files aFiles;           ///< below /sys/fs/cgroup
    std::uint64_t ulMemory, ulFree;
    int iCores;
};

const Case g_aCases[] = {
    {"no control groups", "", {}, g_ulNone, g_ulNone, 0},
    {"version 2: the least counts, free is what the fullest leaves",
     "0::/job/step/task\n",
     {{"job/memory.max", "1000\n"},
      {"job/memory.current", "950\n"},
      {"job/memory.stat", "anon 800\nfile 150\ninactive_file 30\nactive_file 120\n"},
      {"job/cpu.max", "max 100000\n"},
      {"job/step/memory.max", "900\n"},
      {"job/step/memory.current", "100\n"},
      {"job/step/cpu.max", "250000 100000\n"},
      {"job/step/task/memory.max", "max\n"},
      {"job/step/task/cpu.max", "800000 100000\n"},
      {"job/other/memory.max", "1\n"},
      {"job/other/cpu.max", "1000 100000\n"}},
     900,
     80,
     3},
    {"a container that shows its own group as the root",
     "0::/../../pod/x\n",
     {{"memory.max", "700\n"},
      {"memory.current", "900\n"},
      {"cpu.max", "5000 100000\n"},
      {"pod/x/memory.max", "1\n"}},
     700,
     0,
     1},
    {"a path that is not mounted",
     "0::/system.slice/docker-1.scope\n",
     {{"memory.max", "700\n"}, {"cpu.max", "200000 100000\n"}, {"system.slice/cpu.max", "1 1\n"}},
     700,
     700,
     2},
    {"version 1: no limit is a number or -1",
     "4:cpuset:/\n3:cpu,cpuacct:/user/job\n2:memory:/user/job:1\n1:name=systemd:/user\n",
     {{"memory/memory.limit_in_bytes", "9223372036854771712\n"},
      {"memory/memory.usage_in_bytes", "5000\n"},
      {"memory/user/memory.limit_in_bytes", "9223372036854771712\n"},
      {"memory/user/job:1/memory.limit_in_bytes", "4000\n"},
      {"memory/user/job:1/memory.usage_in_bytes", "3000\n"},
      {"memory/user/job:1/memory.stat", "inactive_file 1\ntotal_inactive_file 600\n"},
      {"cpu,cpuacct/cpu.cfs_quota_us", "-1\n"},
      {"cpu,cpuacct/cpu.cfs_period_us", "100000\n"},
      {"cpu,cpuacct/user/cpu.cfs_quota_us", "400000\n"},
      {"cpu,cpuacct/user/cpu.cfs_period_us", "100000\n"},
      {"cpu,cpuacct/user/job/cpu.cfs_quota_us", "-1\n"},
      {"cpu,cpuacct/user/job/cpu.cfs_period_us", "100000\n"}},
     4000,
     1600,
     4},
    {"both: memory in version 1, processors in version 2",
     "2:memory:/a\n1:name=systemd:/a\n0::/b\n",
     {{"memory/a/memory.limit_in_bytes", "4000\n"},
      {"memory/a/memory.usage_in_bytes", "1000\n"},
      {"unified/cgroup.controllers", "cpu\n"},
      {"unified/b/cpu.max", "150000 100000\n"}},
     4000,
     3000,
     2},
    {"files that hold nothing useful",
     "0::/job\nnonsense\n:\n",
     {{"job/memory.max", ""}, {"job/memory.current", "x"}, {"job/cpu.max", "100000 0\n"}},
     g_ulNone,
     g_ulNone,
     0}};

TEST(ClientLimits, AreThoseOfAllGroupsAround)
{
    for (const Case& rCase : g_aCases)
    {
        SCOPED_TRACE(rCase.pcWhat);
        const CTempDir aRoot;
        WriteFiles(aRoot / "proc/self", {{"cgroup", rCase.strGroups}});
        WriteFiles(aRoot / "sys/fs/cgroup", rCase.aFiles);
        const CMachineLimits aLimits(aRoot / "");
        EXPECT_EQ(aLimits.GetMemory(), rCase.ulMemory);
        EXPECT_EQ(aLimits.GetFreeMemory(), rCase.ulFree);
        EXPECT_EQ(aLimits.GetCores(), rCase.iCores);
    }
}

/// A place of our own among the mounts, until this goes; GetError() says why there is none.
class CPrivateMounts
{
public:
    CPrivateMounts()
    {
        m_bDone = unshare(CLONE_NEWNS) == 0 &&
                  mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    }
    ~CPrivateMounts()
    {
        EXPECT_EQ(setns(m_iFormer, CLONE_NEWNS), 0);
        fs::current_path(m_aDirectory);
        close(m_iFormer);
    }
    bool Bind(const std::string& strFolder, const char* pcOver)
    {
        return m_bDone && mount(strFolder.c_str(), pcOver, nullptr, MS_BIND, nullptr) == 0;
    }

private:
    const fs::path m_aDirectory = fs::current_path();
    const int m_iFormer = open("/proc/self/ns/mnt", O_RDONLY | O_CLOEXEC);
    bool m_bDone = false;
};

TEST(ClientLimits, AreKeptByClientAndServer)
{
    const CTempDir aDir;
    WriteFiles(aDir / "", {{"memory.max", "314572800\n"},
                           {"memory.current", "104857600\n"},
                           {"cpu.max", "20000 100000\n"}});
    CPrivateMounts aMounts;
    if (!aMounts.Bind(aDir / "", "/sys/fs/cgroup"))
        GTEST_SKIP() << "no mounts of our own: " << std::strerror(errno);
    EXPECT_EQ(GetFreeMemory(), 200u << 20);
    EXPECT_EQ(CMachineLimits::CountCores(), 1);

    setenv("TALVEN_SERVER", TALVEN_SERVER_PROGRAM, 1);
    CPrivateServer aServer;
    CSession aSession;
    PrivateServerOptions aOptions;
    aOptions.strBackend = "host";
    ASSERT_TRUE(aServer.Start(aOptions, aSession)) << aServer.GetError();
    EXPECT_TRUE(aServer.GetServerInfo().ends_with(" 1 devices available."))
        << aServer.GetServerInfo();
    std::uint64_t ulMemory = 0;
    EXPECT_TRUE(aSession.GetServerMemory(ulMemory));
    EXPECT_EQ(ulMemory, 150u << 20) << "half of the limit";
    EXPECT_TRUE(aSession.SetVolumeSize(1000, 1000, 10)) << aSession.GetError();
    EXPECT_FALSE(aSession.SetVolumeSize(1000, 1000, 80));
    EXPECT_TRUE(aServer.GetServerError().ends_with("the machine has 200 MiB left"))
        << aServer.GetServerError();
}

}  // namespace
}  // namespace talven::test
