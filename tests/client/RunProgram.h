#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "Files.h"

namespace talven::test
{

struct Outcome
{
    int iExit = -1;  ///< exit code, or 128 + signal
    std::string strOut, strErr;
};

/// Starts talven with these arguments; standard output and error go to files in the directory.
inline pid_t StartProgram(const CTempDir& rDir, const std::vector<std::string>& vstrArgs,
                          const std::vector<std::string>& vstrEnvironment = {},
                          rlim_t ulFileLimit = RLIM_INFINITY)
{
    const std::string strOut = rDir / "stdout.txt", strErr = rDir / "stderr.txt";
    std::vector<char*> vpcArgs = {const_cast<char*>(TALVEN_PROGRAM)};
    for (const std::string& rArg : vstrArgs) vpcArgs.push_back(const_cast<char*>(rArg.c_str()));
    vpcArgs.push_back(nullptr);
    const pid_t iChild = fork();
    if (iChild != 0) return iChild;
    setenv("LSAN_OPTIONS", "print_suppressions=0", 1);  // standard error is looked at
    for (const std::string& rEntry : vstrEnvironment) putenv(const_cast<char*>(rEntry.c_str()));
    dup2(open(strOut.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 1);
    dup2(open(strErr.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 2);
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

inline Outcome RunProgram(const CTempDir& rDir, const std::vector<std::string>& vstrArgs,
                          const std::vector<std::string>& vstrEnvironment = {},
                          rlim_t ulFileLimit = RLIM_INFINITY)
{
    return WaitForProgram(rDir, StartProgram(rDir, vstrArgs, vstrEnvironment, ulFileLimit));
}

/// One clear line on standard error, the exit code of a failure, no output.
inline void ExpectFailure(const Outcome& rOutcome, const std::string& strReason, int iExit = 1)
{
    EXPECT_EQ(rOutcome.iExit, iExit) << rOutcome.strErr;
    EXPECT_EQ(rOutcome.strErr.rfind("talven: ", 0), 0u) << rOutcome.strErr;
    EXPECT_EQ(rOutcome.strErr.find('\n'), rOutcome.strErr.size() - 1) << rOutcome.strErr;
    EXPECT_NE(rOutcome.strErr.find(strReason), std::string::npos)
        << rOutcome.strErr << "expected: " << strReason;
}

}  // namespace talven::test
