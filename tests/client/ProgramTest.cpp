#include <gtest/gtest.h>

#include <cmath>
#include <numeric>

#include "FakeServer.h"
#include "RunProgram.h"
#include "talven/Angles.h"
#include "talven/MrcReader.h"
#include "talven/MrcWriter.h"

namespace talven::test
{
namespace
{

/// A small tilt series in a directory of its own, and the program working on it.
class Program : public testing::Test
{
protected:
    void SetUp() override
    {
        CMrcWriter aWriter;
        std::vector<float> vfPixels(6 * 4);
        ASSERT_TRUE(aWriter.Create(m_strTilts, 6, 4, 5, 2, false, ""));
        for (int i = 0; i < 5; ++i)
        {
            std::fill(vfPixels.begin(), vfPixels.end(), float(i));
            ASSERT_TRUE(aWriter.WriteSection(vfPixels));
        }
        ASSERT_TRUE(aWriter.Finish());
        WriteFile(m_strAngles, "-40\n-20\n0\n20\n40\n");
        WriteFile(m_strOut, "precious");
    }

    std::vector<std::string> mArgs(const std::vector<std::string>& vstrMore = {}) const
    {
        std::vector<std::string> vstrArgs = {"reconstruct", "--tilts",     m_strTilts,
                                             "--angles",    m_strAngles,   "-o",
                                             m_strOut,      "--thickness", m_strThickness};
        vstrArgs.insert(vstrArgs.end(), vstrMore.begin(), vstrMore.end());
        return vstrArgs;
    }
    std::vector<std::string> mArgsAt(const CFakeServer& rServer,
                                     std::vector<std::string> vstrMore = {}) const
    {
        vstrMore.insert(vstrMore.end(),
                        {"--server", "127.0.0.1:" + std::to_string(rServer.GetPort())});
        return mArgs(vstrMore);
    }
    void mExpectUntouched(std::size_t tFiles) const
    {
        EXPECT_EQ(ReadFile(m_strOut), "precious");
        EXPECT_EQ(m_aDir.CountFiles(), tFiles) << "something was left behind";
    }

    CTempDir m_aDir;
    std::string m_strThickness = "3";
    std::string m_strTilts = m_aDir / "ts.mrc", m_strAngles = m_aDir / "ts.tlt",
                m_strOut = m_aDir / "rec.mrc";
    static constexpr std::size_t g_tFiles = 5;  // those three, standard output and error
};

TEST_F(Program, WritesTheVolumeAndAllFurtherResults)
{
    CFakeServer aServer;
    CMrcWriter aReference;
    ASSERT_TRUE(aReference.Create(m_aDir / "truth.mrc", 6, 4, 3, 0, true, ""));
    for (int z = 0; z < 3; ++z)
    {
        std::vector<float> vfPixels(24);
        for (int i = 0; i < 24; ++i) vfPixels[std::size_t(i)] = float(1000 * z + i);
        ASSERT_TRUE(aReference.WriteSection(vfPixels));
    }
    ASSERT_TRUE(aReference.Finish());

    const Outcome aOutcome = RunProgram(
        m_aDir,
        mArgsAt(aServer, {"--iterations", "4", "--subsets", "2", "--exclude", "2", "--preview",
                          m_aDir / "p.png", "--rfactor-plot", m_aDir / "r.png", "--rfactors",
                          m_aDir / "r.csv", "--reference", m_aDir / "truth.mrc", "--json"}));
    ASSERT_EQ(aOutcome.iExit, 0) << aOutcome.strErr;
    EXPECT_EQ(aOutcome.strErr, "");
    EXPECT_EQ(aOutcome.strOut.front(), '{');
    EXPECT_NE(aOutcome.strOut.find("\"correlation\": 1.0"), std::string::npos) << aOutcome.strOut;
    EXPECT_EQ(ReadFile(m_aDir / "p.png").substr(1, 3), "PNG");
    EXPECT_EQ(ReadFile(m_aDir / "r.png").substr(1, 3), "PNG");
    EXPECT_EQ(ReadFile(m_aDir / "r.csv"), "iteration,rfactor\n1,1\n2,0.5\n3,0.333333\n4,0.25\n");

    CMrcReader aReader;
    ASSERT_TRUE(aReader.Open(m_strOut)) << aReader.GetError();
    std::vector<float> vfSection(24);
    ASSERT_TRUE(aReader.ReadSection(2, vfSection));
    EXPECT_EQ(vfSection[5], 2005);
    EXPECT_NEAR(aReader.GetHeader().dPixel, 2, 1e-6);

    // Views 1, 3, 4, 5 were sent; the subsets are {-40, 20} and {0, 40}.
    for (const Message& rMessage : aServer.WaitForMessages())
    {
        const EMsg eType = rMessage.aHeader.GetType();
        if (eType == EMsg::PROJSIZE)
        {
            EXPECT_EQ(rMessage.GetFloats(), (std::vector<float>{-40, 0, 0, 0, 20, 0, 40, 0}));
        }
        if (eType == EMsg::SETOP)
        {
            EXPECT_EQ(rMessage.GetWords(), (std::vector<std::uint32_t>{0, 2, 1, 3}));
        }
        if (eType == EMsg::PROJSET && rMessage.aHeader.auiFields[4] == 1)
        {
            EXPECT_EQ(rMessage.GetFloats().back(), 2);
        }
    }
}

TEST_F(Program, SmoothsWithANormalisedGaussian)
{
    CFakeServer aServer;
    const Outcome aOutcome = RunProgram(m_aDir, mArgsAt(aServer, {"--smooth", "0.7,5"}));
    ASSERT_EQ(aOutcome.iExit, 0) << aOutcome.strErr;
    bool bSent = false;
    for (const Message& rMessage : aServer.WaitForMessages())
    {
        if (rMessage.aHeader.GetType() != EMsg::SMOOTHOPT) continue;
        bSent = true;
        const auto& aF = rMessage.aHeader.auiFields;
        EXPECT_EQ(std::vector<std::uint32_t>(&aF[4], &aF[8]),
                  (std::vector<std::uint32_t>{5, 7, 7, 7}));
        const std::vector<float> vfKernel = rMessage.GetFloats();
        ASSERT_EQ(vfKernel.size(), 343u);
        EXPECT_NEAR(std::accumulate(vfKernel.begin(), vfKernel.end(), 0.0), 1, 1e-6);
        EXPECT_NEAR(vfKernel[3 * 49 + 3 * 7 + 4] / vfKernel[3 * 49 + 3 * 7 + 3],
                    std::exp(-0.5 / 0.49), 1e-6);
    }
    EXPECT_TRUE(bSent);
}

TEST_F(Program, RefusesWhatCannotWork)
{
    WriteFile(m_aDir / "four.tlt", "1\n2\n3\n4\n");
    const std::string strText = m_strAngles;
    const struct
    {
        std::vector<std::string> vstrArgs;
        std::string strReason;
    } aCases[] = {
        {{"reconstruct", "--tilts", m_aDir / "no.mrc", "--angles", m_strAngles, "-o", m_strOut,
          "--thickness", "3"},
         "no.mrc: cannot read"},
        {{"reconstruct", "--tilts", strText, "--angles", m_strAngles, "-o", m_strOut, "--thickness",
          "3"},
         "not an MRC file"},
        {{"reconstruct", "--tilts", m_strTilts, "--angles", m_aDir / "four.tlt", "-o", m_strOut,
          "--thickness", "3"},
         "four.tlt has 4 angles, but"},
        {mArgs({"--width", "2000000000"}), "2^31"},
        {mArgs({"--exclude", "6"}), "view 6, but the stack has 5"},
        {mArgs({"--exclude", "1-5"}), "no view is left"},
        {mArgs({"--subsets", "6"}), "6 subsets of 5"},
        {mArgs({"--subset-sizes", "2,2"}), "add up to 4"},
        {mArgs({"--smooth", "1,4"}), "10 iterations are no whole number of intervals of 4"},
        {mArgs({"--smooth", "1", "--method", "bp"}), "no iterations to smooth between"},
        {mArgs({"--relaxation", "1,0.5"}), "2 relaxation factors for 10"},
        {mArgs({"--reference", m_strTilts}), "is 6 x 4 x 5, the volume is 6 x 4 x 3"},
        {mArgs({"--preview", "/no/such/dir/p.png"}), "No such file"},
        {mArgs({"--server", "127.0.0.1:1"}), "cannot reach a server"},
    };
    for (const auto& [vstrArgs, strReason] : aCases)
    {
        SCOPED_TRACE(strReason);
        const Outcome aOutcome = RunProgram(m_aDir, vstrArgs);
        ExpectFailure(aOutcome, strReason);
        mExpectUntouched(g_tFiles + 1);
    }
}

TEST_F(Program, WrongUsageHasItsOwnExitCode)
{
    for (const std::vector<std::string>& rMore : {std::vector<std::string>{"--exclude", "3-"},
                                                  {"--relaxation", "fast"},
                                                  {"--weight-box", "1,2,3"},
                                                  {"--smooth", "0"},
                                                  {"--method", "magic"},
                                                  {"--iterations", "0"},
                                                  {"--thickness", "-5"},
                                                  {"--subsets", "2", "--subset-sizes", "2,3"},
                                                  {"--server", "h:1", "--devices", "1"},
                                                  {"--no-such-option"}})
    {
        SCOPED_TRACE(rMore.front());
        ExpectFailure(RunProgram(m_aDir, mArgs(rMore)), "", 2);
        mExpectUntouched(g_tFiles);
    }
    ExpectFailure(RunProgram(m_aDir, {}), "", 2);
    EXPECT_EQ(RunProgram(m_aDir, {"reconstruct", "--help"}).iExit, 0);
}

TEST_F(Program, TheDocumentationShowsItsHelp)
{
    const std::string strDocument = ReadFile(TALVEN_CLI_DOCUMENT);
    for (const char* pcCommand :
         {"reconstruct", "reproject", "transform", "compare", "view", "info", "phantom", "serve"})
    {
        const std::string strHelp = RunProgram(m_aDir, {pcCommand, "--help"}).strOut;
        EXPECT_NE(strDocument.find("```text\n" + strHelp + "```\n"), std::string::npos)
            << "scripts/update-cli-docs puts the help of " << pcCommand << " into docs/cli.md";
    }
}

TEST_F(Program, AServerThatLeavesOrRefusesIsAFailure)
{
    for (const EMsg eMsg : {EMsg::PROJSET, EMsg::RECONSTRUCT, EMsg::VOLGET})
    {
        SCOPED_TRACE(GetMsgName(eMsg));
        const CFakeServer aLeaves(Faults{{}, eMsg});
        ExpectFailure(RunProgram(m_aDir, mArgsAt(aLeaves)), "connection lost");
        mExpectUntouched(g_tFiles);
        const CFakeServer aRefuses(Faults{{eMsg}});
        ExpectFailure(RunProgram(m_aDir, mArgsAt(aRefuses)), "refused by the server");
        mExpectUntouched(g_tFiles);
    }
}

TEST_F(Program, AFullDiskIsAFailure)
{
    const CFakeServer aServer;
    m_strThickness = "300";
    ExpectFailure(RunProgram(m_aDir, mArgsAt(aServer), {}, 20000), "File too large");
    mExpectUntouched(g_tFiles);
}

TEST_F(Program, APrivateServerThatCannotStartIsAFailure)
{
    const std::string strScript = m_aDir / "server.sh";
    WriteFile(strScript, "#!/bin/sh\npwd\necho 'Error: GPU devices are not found.'\nexit 255\n");
    std::filesystem::permissions(strScript, std::filesystem::perms::owner_all);
    const std::string strTmp = m_aDir / "tmp";
    std::filesystem::create_directory(strTmp);
    ExpectFailure(RunProgram(m_aDir, mArgs(), {"TALVEN_SERVER=" + strScript, "TMPDIR=" + strTmp}),
                  "talven-server did not start: GPU devices are not found.");
    ExpectFailure(RunProgram(m_aDir, mArgs(), {"TALVEN_SERVER=/no/such/server"}), "cannot run");
    EXPECT_TRUE(std::filesystem::is_empty(strTmp)) << "a directory was left behind";
    mExpectUntouched(g_tFiles + 2);
}

TEST_F(Program, ReprojectsAndDescribesAServer)
{
    CFakeServer aServer;
    const Outcome aInfo =
        RunProgram(m_aDir, {"info", "--server", "127.0.0.1:" + std::to_string(aServer.GetPort())});
    EXPECT_EQ(aInfo.iExit, 0) << aInfo.strErr;
    EXPECT_NE(aInfo.strOut.find("5.9 GiB"), std::string::npos) << aInfo.strOut;
}

}  // namespace
}  // namespace talven::test
