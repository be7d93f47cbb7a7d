#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Files.h"
#include "talven/AtomicFile.h"

namespace talven::test
{
namespace
{

TEST(AtomicFile, ReplacesOnlyWithACompleteFile)
{
    const CTempDir aDir;
    const std::string strPath = aDir / "out";
    WriteFile(strPath, "old");
    chmod(strPath.c_str(), 0640);
    std::filesystem::create_symlink(strPath, aDir / "link");
    {
        CAtomicFile aFile;
        ASSERT_TRUE(aFile.Create(aDir / "link"));
        ASSERT_TRUE(aFile.WriteAt(0, std::as_bytes(std::span("new", 3))));
        EXPECT_EQ(ReadFile(strPath), "old");
        ASSERT_TRUE(aFile.Commit());
    }
    EXPECT_EQ(ReadFile(strPath), "new");
    EXPECT_TRUE(std::filesystem::is_symlink(aDir / "link"));
    struct stat aStat
    {
    };
    stat(strPath.c_str(), &aStat);
    EXPECT_EQ(aStat.st_mode & 0777, 0640u);
    EXPECT_EQ(aDir.CountFiles(), 2u);
}

TEST(AtomicFile, SaysWhyItCannotWrite)
{
    const CTempDir aDir;
    CAtomicFile aFile;
    EXPECT_FALSE(aFile.Create(aDir / "no/such/directory"));
    EXPECT_NE(aFile.GetError().find("No such file"), std::string::npos) << aFile.GetError();
    EXPECT_FALSE(aFile.Create(aDir / ""));
    EXPECT_FALSE(aFile.Create(aDir / "big", std::uint64_t(1) << 60));
    EXPECT_NE(aFile.GetError().find("free"), std::string::npos) << aFile.GetError();

    ASSERT_TRUE(aFile.Create("/dev/full")) << "a device is written in place";
    EXPECT_FALSE(aFile.WriteAt(0, std::as_bytes(std::span("x", 1))));
    EXPECT_NE(aFile.GetError().find("No space left"), std::string::npos) << aFile.GetError();
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/full"));
}

TEST(AtomicFile, AFullDiskLeavesNothingBehind)
{
    const CTempDir aDir;
    const std::string strPath = aDir / "out";
    WriteFile(strPath, "old");
    const pid_t iChild = fork();
    if (iChild == 0)
    {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit aLimit = {1000, 1000};
        setrlimit(RLIMIT_FSIZE, &aLimit);
        CAtomicFile aFile;
        const std::vector<std::byte> vcData(4000);
        _exit(aFile.Create(strPath) && !aFile.WriteAt(0, vcData) && !aFile.Commit() ? 0 : 1);
    }
    int iStatus = -1;
    ASSERT_EQ(waitpid(iChild, &iStatus, 0), iChild);
    EXPECT_EQ(iStatus, 0);
    EXPECT_EQ(ReadFile(strPath), "old");
    EXPECT_EQ(aDir.CountFiles(), 1u);
}

}  // namespace
}  // namespace talven::test
