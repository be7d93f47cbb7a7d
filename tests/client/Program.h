// The program as a user runs it, with the real server.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <thread>

#include "Support.h"
#include "talven/MrcWriter.h"

namespace talven::test
{

using nlohmann::json;

/// Retries until the condition holds, for ten seconds.
template <class F>
bool Eventually(F Condition)
{
    bool bDone = Condition();
    for (int i = 0; i < 1000 && !bDone; ++i, bDone = Condition())
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return bDone;
}

inline const std::string g_strReconstruct =
    "reconstruct --tilts ph.mrc --angles ph.tlt --thickness 36 -o rec.mrc ";
inline const std::string g_strTransform = "transform --measured ph.mrc -o rec.mrc ";
inline const std::string g_strCompare = "compare --measured ph.mrc --aligned ph.mrc ";
inline const std::string g_strView = "view ph.mrc -o rec.mrc ";

/// Runs the program with the real server in a directory of its own.
class CProgramTest : public testing::Test
{
protected:
    CProgramTest()
    {
        std::filesystem::create_directory(m_aDir / "tmp");
        WriteFile(m_aDir / "err.txt", "");
        mRun(
            "phantom ph --size 90,43 --thickness 36 --angles -60,60,3 --beads 4 --seed 3 "
            "--pixel 7");
        WriteFile(m_aDir / "rec.mrc", "precious");
    }
    ~CProgramTest() override
    {
        EXPECT_TRUE(std::filesystem::is_empty(m_aDir / "tmp")) << "a private server left something";
    }
    void mWrite(const std::string& strName, int iX, int iY, const std::vector<Floats>& rSections)
    {
        CMrcWriter aWriter;
        EXPECT_TRUE(aWriter.Create(m_aDir / strName, iX, iY, int(rSections.size()), 2, false, ""));
        for (const Floats& rSection : rSections) EXPECT_TRUE(aWriter.WriteSection(rSection));
        EXPECT_TRUE(aWriter.Finish()) << aWriter.GetError();
    }
    Floats mRead(const std::string& strName)
    {
        const Floats vfAll = ReadPixels(m_aReader, m_aDir / strName);
        EXPECT_FALSE(vfAll.empty()) << m_aReader.GetError();
        return vfAll;
    }
    /// \param strSetup  what a shell does before; strErrors: where standard error goes
    pid_t mStart(const std::string& strArgs, const std::string& strSetup = ":",
                 const std::string& strErrors = "err.txt")
    {
        const std::string strScript =
            "cd " + m_aDir / "" + "; export LSAN_OPTIONS=print_suppressions=0 TMPDIR=$PWD/tmp " +
            "TALVEN_SERVER=" TALVEN_SERVER_PROGRAM "; exec >out.txt 2>" + strErrors + "; " +
            strSetup + "; exec " TALVEN_PROGRAM " " + strArgs;
        WriteFile(m_aDir / "out.txt", "");
        m_iFiles = m_aDir.CountFiles();
        const pid_t iChild = fork();
        if (iChild == 0) execl("/bin/sh", "sh", "-c", strScript.c_str(), nullptr);
        return iChild;
    }
    /// Exit code, or 128 + signal.
    int mWait(pid_t iChild)
    {
        int iStatus = -1;
        EXPECT_EQ(waitpid(iChild, &iStatus, 0), iChild);
        m_strOut = ReadFile(m_aDir / "out.txt");
        m_strErr = ReadFile(m_aDir / "err.txt");
        return WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : 128 + WTERMSIG(iStatus);
    }
    std::string mRun(const std::string& strArgs)
    {
        EXPECT_EQ(mWait(mStart(strArgs)), 0) << strArgs;
        EXPECT_EQ(m_strErr, "");
        return m_strOut;
    }
    json mJson(const std::string& strArgs)
    {
        return json::parse(mRun(strArgs + " --json"), nullptr, false);
    }
    /// One clear line on standard error, the exit code of a failure; nothing changed.
    void mExpectFailure(pid_t iChild, const std::string& strReason, int iExit = 1)
    {
        EXPECT_EQ(mWait(iChild), iExit) << m_strErr;
        EXPECT_EQ(m_strErr.rfind("talven: ", 0), 0u) << m_strErr;
        EXPECT_EQ(m_strErr.find('\n'), m_strErr.size() - 1) << m_strErr;
        EXPECT_NE(m_strErr.find(strReason), std::string::npos) << m_strErr << strReason;
        EXPECT_EQ(ReadFile(m_aDir / "rec.mrc"), "precious");
        EXPECT_EQ(m_aDir.CountFiles(), m_iFiles) << "something was left behind";
    }

    CTempDir m_aDir;
    CMrcReader m_aReader;
    std::string m_strOut, m_strErr;
    int m_iFiles = 0;  // before the last start
};

}  // namespace talven::test
