#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <nlohmann/json.hpp>
#include <thread>

#include "RunProgram.h"
#include "talven/MrcReader.h"
#include "talven/MrcWriter.h"
#include "talven/PrivateServer.h"

namespace talven::test
{
namespace
{

using namespace std::chrono_literals;
using Args = std::vector<std::string>;

/// Retries until the condition holds, for ten seconds.
template <class F>
bool Eventually(F Condition)
{
    for (int i = 0; i < 1000; ++i)
    {
        if (Condition()) return true;
        std::this_thread::sleep_for(10ms);
    }
    return false;
}

/// The first child of a process; 0: none (any more).
pid_t GetChild(pid_t iParent)
{
    const std::string strTask = std::to_string(iParent);
    return std::atoi(ReadFile("/proc/" + strTask + "/task/" + strTask + "/children").c_str());
}

std::vector<float> ReadPixels(const std::string& strPath)
{
    CMrcReader aReader;
    EXPECT_TRUE(aReader.Open(strPath)) << aReader.GetError();
    const std::size_t tSection = aReader.GetHeader().GetSectionPixels();
    std::vector<float> vfAll(tSection * std::size_t(aReader.GetHeader().iZ));
    for (int z = 0; z < aReader.GetHeader().iZ; ++z)
        EXPECT_TRUE(
            aReader.ReadSection(z, std::span(vfAll).subspan(std::size_t(z) * tSection, tSection)));
    return vfAll;
}

/// Phantoms, and the program with the real server working on them.
class Reconstruct : public testing::Test
{
protected:
    void SetUp() override
    {
        std::filesystem::create_directory(m_strTmp);
        mRun({"phantom", m_aDir / "ph", "--size", "90,43", "--thickness", "36", "--angles",
              "-60,60,3", "--beads", "4", "--seed", "3"});
    }
    void TearDown() override
    {
        EXPECT_TRUE(std::filesystem::is_empty(m_strTmp)) << "a private server left something";
    }

    Args mEnvironment() const
    {
        return {"TALVEN_SERVER=" TALVEN_SERVER_PROGRAM, "TMPDIR=" + m_strTmp};
    }
    Outcome mRun(const Args& rArgs) const
    {
        const Outcome aOutcome = RunProgram(m_aDir, rArgs, mEnvironment());
        EXPECT_EQ(aOutcome.iExit, 0) << aOutcome.strErr;
        return aOutcome;
    }
    Args mArgs(const std::string& strOut, const Args& rMore = {}) const
    {
        Args vstrArgs = {"reconstruct",
                         "--tilts",
                         m_aDir / "ph.mrc",
                         "--angles",
                         m_aDir / "ph.tlt",
                         "--thickness",
                         "36",
                         "-o",
                         m_aDir / strOut};
        vstrArgs.insert(vstrArgs.end(), rMore.begin(), rMore.end());
        return vstrArgs;
    }
    nlohmann::json mReconstruct(const std::string& strOut, Args vstrMore) const
    {
        vstrMore.insert(vstrMore.end(), {"--json", "--reference", m_aDir / "ph_truth.mrc"});
        return nlohmann::json::parse(mRun(mArgs(strOut, vstrMore)).strOut, nullptr, false);
    }
    /// A job of minutes, and the private server that does it.
    pid_t mStartLongJob(pid_t& rServer) const
    {
        WriteFile(m_aDir / "rec.mrc", "precious");
        const pid_t iClient =
            StartProgram(m_aDir, mArgs("rec.mrc", {"--iterations", "100000"}), mEnvironment());
        EXPECT_TRUE(Eventually([&] { return (rServer = GetChild(iClient)) != 0; }));
        std::this_thread::sleep_for(300ms);
        return iClient;
    }

    CTempDir m_aDir;
    std::string m_strTmp = m_aDir / "tmp";
};

TEST_F(Reconstruct, APhantomComesBack)
{
    const nlohmann::json aSart = mReconstruct("sart.mrc", {"--subsets", "41"});
    EXPECT_GT(aSart["reference"]["correlation"], 0.9) << aSart;
    EXPECT_LT(aSart["reference"]["relative_rms_error"], 0.4);
    for (const Args& rMethod : {Args{"--method", "sart", "--subsets", "1"},
                                Args{"--method", "sart", "--subsets", "4", "--order", "given"},
                                Args{"--method", "em", "--subsets", "4"}})
    {
        const nlohmann::json aJson = mReconstruct("rec.mrc", rMethod);
        EXPECT_GT(aJson["reference"]["correlation"], 0.7) << aJson;
        const std::vector<double> vdRfactors = aJson["rfactors"];
        ASSERT_EQ(vdRfactors.size(), 10u);
        for (std::size_t i = 1; i < 10; ++i) EXPECT_LT(vdRfactors[i], vdRfactors[i - 1]) << aJson;
    }
    EXPECT_GT(mReconstruct("bp.mrc", {"--method", "bp"})["reference"]["correlation"], 0.4);
}

TEST_F(Reconstruct, OneDeviceAndAContinuedRunGiveTheSameBits)
{
    const Args vstrMethod = {"--subsets",    "5", "--exclude",    "2,40-41",
                             "--iterations", "6", "--relaxation", "0.7"};
    const auto With = [&](Args vstrMore)
    {
        vstrMore.insert(vstrMore.begin(), vstrMethod.begin(), vstrMethod.end());
        return vstrMore;
    };
    mRun(mArgs("all.mrc", vstrMethod));
    mRun(mArgs("one.mrc", With({"--devices", "1"})));
    EXPECT_EQ(ReadPixels(m_aDir / "all.mrc"), ReadPixels(m_aDir / "one.mrc"));

    Args vstrHalf = vstrMethod;
    vstrHalf[5] = "3";
    mRun(mArgs("half.mrc", vstrHalf));
    vstrHalf.insert(vstrHalf.end(), {"--initial-volume", m_aDir / "half.mrc"});
    mRun(mArgs("both.mrc", vstrHalf));
    EXPECT_EQ(ReadPixels(m_aDir / "all.mrc"), ReadPixels(m_aDir / "both.mrc"));
}

TEST_F(Reconstruct, ReprojectionOfTheTruthIsTheTiltSeries)
{
    mRun({"reproject", "--volume", m_aDir / "ph_truth.mrc", "--angles", m_aDir / "ph.tlt", "-o",
          m_aDir / "again.mrc"});
    const std::vector<float> vfExact = ReadPixels(m_aDir / "ph.mrc");
    const std::vector<float> vfAgain = ReadPixels(m_aDir / "again.mrc");
    ASSERT_EQ(vfAgain.size(), vfExact.size());
    double dError = 0, dSquares = 0;
    for (std::size_t i = 0; i < vfExact.size(); ++i)
    {
        dError += std::pow(double(vfAgain[i]) - vfExact[i], 2);
        dSquares += std::pow(double(vfExact[i]), 2);
    }
    // Voxels and linear interpolation blur the small beads; the rest agrees to a few thousandths.
    EXPECT_LT(std::sqrt(dError / dSquares), 0.05);
}

TEST_F(Reconstruct, SmoothingKeepsNoiseDownOnAnyNumberOfDevices)
{
    mRun({"phantom", m_aDir / "ph", "--size", "90,43", "--thickness", "36", "--angles", "-60,60,3",
          "--beads", "4", "--seed", "3", "--noise", "0.3"});
    const Args vstrMethod = {"--subsets", "20", "--iterations", "4"};
    const double dNoisy = mReconstruct("noisy.mrc", vstrMethod)["reference"]["correlation"];
    Args vstrSmooth = vstrMethod;
    vstrSmooth.insert(vstrSmooth.end(), {"--smooth", "0.8,2"});
    const double dSmooth = mReconstruct("smooth.mrc", vstrSmooth)["reference"]["correlation"];
    EXPECT_GT(dSmooth, dNoisy + 0.02);
    vstrSmooth.insert(vstrSmooth.end(), {"--devices", "1"});
    mRun(mArgs("one.mrc", vstrSmooth));
    EXPECT_EQ(ReadPixels(m_aDir / "smooth.mrc"), ReadPixels(m_aDir / "one.mrc"));
}

TEST_F(Reconstruct, ADriftIsFoundTakenOutAndForgotten)
{
    // The specimen drifts by (3, -2) pixels in every other projection.
    CMrcReader aReader;
    ASSERT_TRUE(aReader.Open(m_aDir / "ph.mrc")) << aReader.GetError();
    const MrcHeader& rHeader = aReader.GetHeader();
    const int iX = rHeader.iX, iY = rHeader.iY;
    CMrcWriter aWriter;
    ASSERT_TRUE(aWriter.Create(m_aDir / "raw.mrc", iX, iY, rHeader.iZ, 0, false, ""));
    std::vector<float> vfSection(rHeader.GetSectionPixels()), vfMoved(vfSection.size());
    for (int z = 0; z < rHeader.iZ; ++z)
    {
        ASSERT_TRUE(aReader.ReadSection(z, vfSection));
        for (int y = 0; y < iY; ++y)
            for (int x = 0; x < iX; ++x)
            {
                const int iFromX = std::clamp(x - (z % 2 ? 3 : 0), 0, iX - 1);
                const int iFromY = std::clamp(y + (z % 2 ? 2 : 0), 0, iY - 1);
                vfMoved[std::size_t(y * iX + x)] = vfSection[std::size_t(iFromY * iX + iFromX)];
            }
        ASSERT_TRUE(aWriter.WriteSection(vfMoved));
    }
    ASSERT_TRUE(aWriter.Finish());

    mRun({"reproject", "--volume", m_aDir / "ph_truth.mrc", "--angles", m_aDir / "ph.tlt", "-o",
          m_aDir / "again.mrc"});
    const Args vstrCompare = {"compare",   "--measured",         m_aDir / "raw.mrc",
                              "--aligned", m_aDir / "again.mrc", "--json"};
    Args vstrSearch = vstrCompare;
    vstrSearch.insert(vstrSearch.end(),
                      {"--search", "6", "--write-matrices", m_aDir / "shifts.txt"});
    const nlohmann::json aFound = nlohmann::json::parse(mRun(vstrSearch).strOut, nullptr, false);
    ASSERT_EQ(aFound["sections"].size(), std::size_t(rHeader.iZ));
    for (const nlohmann::json& rSection : aFound["sections"])
    {
        const bool bMoved = rSection["section"].get<int>() % 2 == 0;
        EXPECT_NEAR(rSection["shift"][0], bMoved ? 3 : 0, 0.25) << rSection;
        EXPECT_NEAR(rSection["shift"][1], bMoved ? -2 : 0, 0.25) << rSection;
        EXPECT_GT(rSection["correlation"], 0.95) << rSection;
    }
    mRun({"transform", "--measured", m_aDir / "raw.mrc", "--matrices", m_aDir / "shifts.txt", "-o",
          m_aDir / "aligned.mrc"});
    const auto CorrelationOf = [&](const std::string& strTilts)
    {
        Args vstrArgs =
            mArgs("rec.mrc", {"--subsets", "41", "--json", "--reference", m_aDir / "ph_truth.mrc"});
        vstrArgs[2] = m_aDir / strTilts;
        const nlohmann::json aJson = nlohmann::json::parse(mRun(vstrArgs).strOut, nullptr, false);
        return aJson["reference"]["correlation"].get<double>();
    };
    const double dExact = CorrelationOf("ph.mrc");
    EXPECT_GT(CorrelationOf("aligned.mrc"), dExact - 0.05);
    EXPECT_LT(CorrelationOf("raw.mrc"), dExact - 0.1);
}

TEST_F(Reconstruct, AServerOfOneselfServesManyClients)
{
    const std::string strPort = std::to_string(20000 + getpid() % 20000);
    const pid_t iServer =
        StartProgram(m_aDir, {"serve", "--port", strPort, "--bind", "127.0.0.1", "--devices", "1"},
                     mEnvironment());
    ASSERT_TRUE(Eventually(
        [&]
        {
            CSession aSession;
            std::uint64_t ulMemory = 0;
            return aSession.Open("127.0.0.1", std::uint16_t(std::stoi(strPort)), 1s) &&
                   aSession.GetServerMemory(ulMemory) && ulMemory > 0;
        }));
    EXPECT_NE(ReadFile(m_aDir / "stdout.txt").find("GPU 0 is used"), std::string::npos);
    EXPECT_EQ(ReadFile(m_aDir / "stdout.txt").find("GPU 1 is used"), std::string::npos);

    // A box changes the result, and does not stay for the next client.
    const CTempDir aOther;  // keeps the outputs of the server apart
    const auto Run = [&](const std::string& strOut, Args vstrMore)
    {
        vstrMore.insert(vstrMore.end(), {"--server", "127.0.0.1:" + strPort});
        EXPECT_EQ(RunProgram(aOther, mArgs(strOut, vstrMore)).iExit, 0);
        return ReadPixels(m_aDir / strOut);
    };
    const std::vector<float> vfPlain = Run("1.mrc", {"--iterations", "2"});
    EXPECT_NE(Run("2.mrc", {"--iterations", "2", "--weight-box", "0,0,30,9"}), vfPlain);
    EXPECT_EQ(Run("3.mrc", {"--iterations", "2"}), vfPlain);
    kill(iServer, SIGTERM);
    EXPECT_EQ(WaitForProgram(m_aDir, iServer).iExit, 0);
}

TEST_F(Reconstruct, SignalsEndTheServerAndLeaveNothing)
{
    for (const int iSignal : {SIGINT, SIGTERM})
    {
        pid_t iServer = 0;
        const pid_t iClient = mStartLongJob(iServer);
        kill(iClient, iSignal);
        ExpectFailure(WaitForProgram(m_aDir, iClient), "interrupted");
        EXPECT_NE(kill(iServer, 0), 0) << "the server lives";
        EXPECT_TRUE(std::filesystem::is_empty(m_strTmp));
        EXPECT_EQ(ReadFile(m_aDir / "rec.mrc"), "precious");
        EXPECT_EQ(m_aDir.CountFiles(), 7u) << "a temporary output was left";
    }
}

TEST_F(Reconstruct, AServerThatDiesIsAFailureAndNeverOutlivesItsClient)
{
    pid_t iServer = 0;
    pid_t iClient = mStartLongJob(iServer);
    kill(iServer, SIGKILL);
    ExpectFailure(WaitForProgram(m_aDir, iClient), "talven-server ended with signal 9");
    EXPECT_EQ(ReadFile(m_aDir / "rec.mrc"), "precious");

    iClient = mStartLongJob(iServer);
    kill(iClient, SIGKILL);
    WaitForProgram(m_aDir, iClient);
    EXPECT_TRUE(Eventually(
        [&]
        {
            // Adopted by a process that may not collect it: a zombie is dead, too.
            const std::string strStat = ReadFile("/proc/" + std::to_string(iServer) + "/stat");
            return strStat.empty() || strStat.find(") Z ") != std::string::npos;
        }));
    std::filesystem::remove_all(m_strTmp);  // nobody was left to do it
    std::filesystem::create_directory(m_strTmp);
}

TEST_F(Reconstruct, TheReasonOfARefusalCanBeQuoted)
{
    CSession aSession;
    CPrivateServer aServer;
    setenv("TALVEN_SERVER", TALVEN_SERVER_PROGRAM, 1);
    ASSERT_TRUE(aServer.Start({}, aSession)) << aServer.GetError();
    EXPECT_FALSE(aSession.SetVolumeSize(70000, 70000, 1000));
    EXPECT_TRUE(aSession.WasRefused());
    EXPECT_EQ(aServer.GetServerError().rfind("VOLSIZE: ", 0), 0u) << aServer.GetServerError();
    EXPECT_FALSE(aSession.Reconstruct()) << "nothing was uploaded";
    EXPECT_EQ(aServer.GetServerError().rfind("RECONSTRUCT: ", 0), 0u) << aServer.GetServerError();
}

}  // namespace
}  // namespace talven::test
