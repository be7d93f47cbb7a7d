// One client after the other, and what the console and the log say of them.

#include <gtest/gtest.h>

#include <regex>
#include <sstream>

#include "tests/wire/RawClient.h"
#include "tests/wire/ServerProcess.h"

namespace
{
const std::string g_strClosed = "Info: Client connection has been closed.\n";

Words Align(bool bCompare)
{
    Words vuiFields = {0, 1, Bits(1), 0, 0, Bits(1), 0, Bits(-2.5f), Bits(1), 0, Bits(9)};
    if (bCompare) vuiFields.insert(vuiFields.begin() + 2, {10, 20});
    vuiFields.resize(bCompare ? 12 : 11);
    return vuiFields;
}

// All messages: the name in the log, what the console says more, * for a number that measures.
struct Said
{
    const char* pcName;
    Request aRequest;
    const char* pcText = "";
    bool bCommand = true;
    std::uint32_t uiStatus = 0;
};
const Said g_aSaid[] = {
    {"SERVERPROP", {Msg::eServerProp}, "GPU Memory (MB): Low, High, Total: *\n", false},
    {"PROJGET", {Msg::eProjGet, {3}}, "Error: PROJGET: projection 3 of 0\n", false, 1},
    {"PROJSIZE", {Msg::eProjSize, {4, 2, 2}}, "CClientMain: Responding PROJSIZE\n"},
    {"PROJSET", {Msg::eProjSet, {1}, Words(12)}, "CClientMain: Responding PROJSET\n"},
    {"PROJSET",
     {Msg::eProjSet, {2}, Words(12)},
     "Error: PROJSET: projection 2 of 2\nCClientMain: Responding PROJSET\n",
     true,
     1},
    {"VOLSIZE", {Msg::eVolSize, {4, 2, 1}}},
    {"VOLSET", {Msg::eVolSet, {0}, Words(8)}},
    {"VOLGET", {Msg::eVolGet}, "", false},
    {"SETOP", {Msg::eSetOp, {1, 1}, {0}}},
    {"RECONOPT", {Msg::eReconOpt, {1, 1, 1}, {1, Bits(1)}}},
    {"WEIGHTOPT", {Msg::eWeightOpt}},
    {"SMOOTHOPT",
     {Msg::eSmoothOpt, {0, 1, 2, 1}},
     "Handle SMOOTHOPT Command\nSmoothOpt: 1  2  1\n"},
    {"SMOOTHOPT",
     {Msg::eSmoothOpt, {0, 1, 1, 1}, Words(2)},
     "Handle SMOOTHOPT Command\nError: SMOOTHOPT: 8 bytes of data, a kernel of 1 x 1 x 1 takes 4\n",
     true,
     1},
    {"RECONSTRUCT", {Msg::eReconstruct}, "Info: Start reconstruction.\nRecon time (s) *\n"},
    {"RECONSTATGET",
     {Msg::eReconStatGet, {7}},
     "Error: RECONSTATGET: iteration 7 of 1\n",
     false,
     1},
    {"REPROJECT", {Msg::eReproject}, "Info: Start reprojection.\nProj time (s) *\n"},
    {"MPROJSIZE", {Msg::eMProjSize, {4, 3, 1}}, "MProjSize: 4  3  1\n"},
    {"MPROJSET", {Msg::eMProjSet, {0}, Words(12)}},
    {"TRANSFORM",
     {Msg::eTransform, Align(false)},
     "Transform: proj = 0  1\n   1.00    0.00    0.00    1.00    0.00   -2.50    1.00    0.00    "
     "9.00 \nTransform Time (s): *\n"},
    {"TRANSFORML", {Msg::eTransforml, Align(false), {0, 0}}, "Transform Time (s): *\n"},
    {"COMPARE",
     {Msg::eCompare, Align(true), {Bits(9)}},
     "Compare: 0  1  10  20\n   1.00    0.00    0.00    1.00    0.00   -2.50    1.00    0.00 \n"
     "Compare Time (s): *\n"},
    {"COMPAREL",
     {Msg::eComparel, Align(true), {0, 0, 0}},
     "Error: COMPAREL: 12 bytes of data, 16 needed\nCClientMain: Responding COMPAREL\n",
     true,
     1},
    {"UNKNOWN", {Msg::eCompReply}, "", false}};

TEST(Session, ConsoleAndLogTellWhatHappens)
{
    CServerProcess aServer;
    aServer.Start({{"TALVEN_BUSY_GPUS", "1,2,3,4,5,6,7,8,9,10,11,12,13,14,15"}});
    CRawClient aClient(aServer.GetPort());
    std::string strExpected = " *\nInfo: Client has been connected.\n";
    const auto Expect = [&](const char* pcName, std::uint64_t ulBytes, const char* pcText)
    {
        strExpected += std::string("Info: Received packet. Msg: ") + pcName +
                       ", Serial: " + std::to_string(aClient.GetLastSerial()) +
                       ", OptSize: " + std::to_string(ulBytes) + '\n' + pcText;
    };
    for (const auto& [uiType, pcName, pcText] :
         {std::tuple{Msg::eByteOrder, "BYTEORDER", "Info:  do not swap byte.\n"},
          {Msg::eContinuation, "CONTINUATION", ""},
          {Msg::eLog, "LOG", ""},
          {Msg::eCtfOpt, "CTFOPT", ""},
          {4711u, "UNKNOWN", ""}})  // no replies
    {
        ASSERT_TRUE(aClient.Send({uiType, {0x1234ABCDu}, {1, 2}}));
        Expect(pcName, 8, pcText);
    }
    for (const Said& rSaid : g_aSaid)
    {
        EXPECT_EQ(aClient.Ask(rSaid.aRequest), rSaid.uiStatus) << rSaid.pcName;
        Expect(rSaid.pcName, rSaid.aRequest.GetBytes(), rSaid.pcText);
        if (!rSaid.bCommand) continue;
        strExpected += "CmdReply: ParentSerial = " + std::to_string(aClient.GetLastSerial()) + '\n';
    }
    ASSERT_TRUE(aClient.Send({Msg::eQuit}));
    Expect("QUIT", 0, (g_strClosed + "\n\n" + g_strClosed + "\n\n").c_str());
    ASSERT_TRUE(aServer.WaitFor(g_strClosed + "\n\n", 2));

    std::string strOutput = aServer.GetOutput();
    strOutput.erase(0, strOutput.find("computation.\n") + 13);
    std::istringstream aLines(strOutput);
    std::string strLogged;
    const std::regex aLogged("Info: .*|Error: .*|.{20}\\d{4}");  // and the date
    for (std::string strLine; std::getline(aLines, strLine);)
        if (std::regex_match(strLine, aLogged)) strLogged += strLine + '\n';
    EXPECT_EQ(aServer.GetLog(), strLogged);
    const std::regex aMeasured(
        "(time \\(s\\)|Time \\(s\\):|Total:) *[-+.e0-9]+(  \\d+  \\d+)?|(^).{20}\\d{4}");
    EXPECT_EQ(std::regex_replace(strOutput, aMeasured, "$1 *"), strExpected);
}

TEST(Session, ClientsFollowEachOther)
{
    CServerProcess aServer;
    aServer.Start();
    std::uint32_t uiSerial = 0;
    for (const bool bSwap : {false, true, false})
    {
        CRawClient aClient(aServer.GetPort(), bSwap), aNext(aServer.GetPort());
        ASSERT_TRUE(aClient.Send({Msg::eByteOrder, {0x1234ABCDu}}));
        ASSERT_EQ(aClient.Ask({Msg::eVolSize, {4, 4, 4}}), 0u);
        EXPECT_EQ(aClient.GetReply().Field(1), uiSerial++);
        ASSERT_TRUE(aNext.Send({Msg::eVolGet, {0}}));
        EXPECT_TRUE(aNext.IsSilent(0.2));
        ASSERT_TRUE(aClient.Send({Msg::eQuit}));
        const auto aQuit = aClient.Receive();
        ASSERT_TRUE(aQuit && aQuit->Field(0) == Msg::eQuit);
        EXPECT_EQ(aQuit->Field(1), uiSerial);
        uiSerial += 2;  // the quit handler runs twice; the second packet meets a closed socket
        EXPECT_TRUE(aClient.IsClosedByPeer());
        const auto aReply = aNext.Receive();
        ASSERT_TRUE(aReply);
        EXPECT_EQ(aReply->Field(1), uiSerial++);
        EXPECT_EQ(aReply->Field(5), 1u);  // the volume of the other client is gone
        aNext.Close();
        uiSerial += 2;
    }
    EXPECT_TRUE(aServer.WaitFor(g_strClosed, 12));
}

TEST(Session, BoxAndComparisonOutliveTheClient)
{
    CServerProcess aServer;
    aServer.Start();
    Words vuiSums, vuiProj;
    for (const bool bFirst : {true, false})
    {
        CRawClient aClient(aServer.GetPort());
        ASSERT_EQ(aClient.Ask({Msg::eCompReply}), 0u);
        EXPECT_TRUE(!bFirst || aClient.GetReply().Field(6) == 0);  // no timer runs
        const auto& rFields = aClient.GetReply().auiFields;
        EXPECT_EQ(Words(rFields.begin() + 7, rFields.begin() + 15), bFirst ? Words(8) : vuiSums);
        if (bFirst) aClient.Ask({Msg::eWeightOpt, {1, 0, 0, 0, Bits(2), Bits(1)}});
        ASSERT_EQ(aClient.Ask({Msg::eProjSize, {4, 1, 2}}), 0u);
        ASSERT_EQ(aClient.Ask({Msg::eVolSize, {4, 1, 4}}), 0u);
        ASSERT_EQ(aClient.Ask({Msg::eVolSet, {2}, ToWords({1, 2, 3, 4})}), 0u);
        ASSERT_EQ(aClient.Ask({Msg::eReproject}), 0u);
        ASSERT_EQ(aClient.Ask({Msg::eProjGet, {0}}), 0u);
        if (bFirst) vuiProj = aClient.GetReply().vuiData;
        EXPECT_EQ(aClient.GetReply().vuiData, vuiProj);  // the box weighs again
        EXPECT_NE(vuiProj, ToWords({1, 2, 3, 4}));
        ASSERT_EQ(aClient.Ask({Msg::eMProjSize, {4, 3, 1}}), 0u);
        ASSERT_EQ(aClient.Ask({Msg::eCompare, Align(true), {Bits(9)}}), 0u);
        vuiSums.assign(rFields.begin() + 7, rFields.begin() + 15);
    }
}

TEST(Session, WorksWithoutALogFile)
{
    for (const char* pcHome : {"", "/nonexistent"})
    {
        CServerProcess aServer;
        aServer.Start({{"HOME", pcHome}});
        EXPECT_EQ(CRawClient(aServer.GetPort()).Ask({Msg::eServerProp}), 0u);
        EXPECT_EQ(CRawClient(aServer.GetPort()).Ask({Msg::eServerProp}), 0u);
    }
}
}  // namespace
