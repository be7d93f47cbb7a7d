#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "talven/MrcReader.h"
#include "talven/MrcWriter.h"

namespace talven::test
{

using Args = std::vector<std::string>;
using Floats = std::vector<float>;

inline Args operator+(Args vstrArgs, const Args& rMore)
{
    vstrArgs.insert(vstrArgs.end(), rMore.begin(), rMore.end());
    return vstrArgs;
}

/// A directory for one test, removed with everything in it.
class CTempDir
{
public:
    CTempDir()
    {
        std::string strName = testing::TempDir() + "talven-test-XXXXXX";
        if (mkdtemp(strName.data()) == nullptr) std::abort();
        m_aPath = strName;
    }
    ~CTempDir() { std::filesystem::remove_all(m_aPath); }
    CTempDir(const CTempDir&) = delete;
    CTempDir& operator=(const CTempDir&) = delete;
    std::string operator/(const std::string& strName) const { return (m_aPath / strName).string(); }
    std::size_t CountFiles() const
    {
        return std::size_t(std::distance(std::filesystem::directory_iterator(m_aPath), {}));
    }

private:
    std::filesystem::path m_aPath;
};

inline std::string ReadFile(const std::string& strPath)
{
    std::ifstream aFile(strPath, std::ios::binary);
    return {std::istreambuf_iterator<char>(aFile), {}};
}

inline void WriteFile(const std::string& strPath, const std::string& strBytes)
{
    std::ofstream(strPath, std::ios::binary) << strBytes;
}

/// A file of sections of X x Y.
inline void WriteStack(const std::string& strPath, int iX, int iY,
                       const std::vector<Floats>& rSections, double dPixel = 2)
{
    CMrcWriter aWriter;
    ASSERT_TRUE(aWriter.Create(strPath, iX, iY, int(rSections.size()), dPixel, false, ""))
        << aWriter.GetError();
    for (const Floats& rSection : rSections) ASSERT_TRUE(aWriter.WriteSection(rSection));
    ASSERT_TRUE(aWriter.Finish()) << aWriter.GetError();
}

/// All pixels, [z][y][x].
inline Floats ReadPixels(const std::string& strPath)
{
    CMrcReader aReader;
    EXPECT_TRUE(aReader.Open(strPath)) << aReader.GetError();
    const std::size_t tSection = aReader.GetHeader().GetSectionPixels();
    Floats vfAll(tSection * std::size_t(aReader.GetHeader().iZ));
    for (int z = 0; z < aReader.GetHeader().iZ; ++z)
        EXPECT_TRUE(
            aReader.ReadSection(z, std::span(vfAll).subspan(std::size_t(z) * tSection, tSection)))
            << aReader.GetError();
    return vfAll;
}

#ifdef TALVEN_PROGRAM
struct Outcome
{
    int iExit = -1;  ///< exit code, or 128 + signal
    std::string strOut, strErr;
};

/// Starts talven; standard output and error go to files in the directory.
/// \param iTerminal  that standard error goes to instead; -1: none
inline pid_t StartProgram(const CTempDir& rDir, const Args& rArgs, const Args& rEnvironment = {},
                          rlim_t ulFileLimit = RLIM_INFINITY, int iTerminal = -1)
{
    const std::string strOut = rDir / "stdout.txt", strErr = rDir / "stderr.txt";
    std::vector<char*> vpcArgs = {const_cast<char*>(TALVEN_PROGRAM)};
    for (const std::string& rArg : rArgs) vpcArgs.push_back(const_cast<char*>(rArg.c_str()));
    vpcArgs.push_back(nullptr);
    const pid_t iChild = fork();
    if (iChild != 0) return iChild;
    setenv("LSAN_OPTIONS", "print_suppressions=0", 1);  // standard error is looked at
    for (const std::string& rEntry : rEnvironment) putenv(const_cast<char*>(rEntry.c_str()));
    dup2(open(strOut.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 1);
    const int iErr = open(strErr.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(iTerminal == -1 ? iErr : iTerminal, 2);
    const rlimit aLimit = {ulFileLimit, ulFileLimit};
    setrlimit(RLIMIT_FSIZE, &aLimit);
    execv(vpcArgs[0], vpcArgs.data());
    _exit(99);
}

inline Outcome WaitForProgram(const CTempDir& rDir, pid_t iChild)
{
    Outcome aOutcome;
    int iStatus = 0;
    if (waitpid(iChild, &iStatus, 0) == iChild)
        aOutcome.iExit = WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : 128 + WTERMSIG(iStatus);
    aOutcome.strOut = ReadFile(rDir / "stdout.txt");
    aOutcome.strErr = ReadFile(rDir / "stderr.txt");
    return aOutcome;
}

/// One clear line on standard error, the exit code of a failure, no output.
inline void ExpectFailure(const Outcome& rOutcome, const std::string& strReason, int iExit = 1)
{
    EXPECT_EQ(rOutcome.iExit, iExit) << rOutcome.strErr;
    EXPECT_EQ(rOutcome.strErr.rfind("talven: ", 0), 0u) << rOutcome.strErr;
    EXPECT_EQ(rOutcome.strErr.find('\n'), rOutcome.strErr.size() - 1) << rOutcome.strErr;
    EXPECT_NE(rOutcome.strErr.find(strReason), std::string::npos) << rOutcome.strErr << strReason;
}
#endif

}  // namespace talven::test
