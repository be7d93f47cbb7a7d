#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <fstream>
#include <sstream>

#include "tests/wire/Messages.h"
#include "tests/wire/RawClient.h"
#include "tests/wire/ServerProcess.h"

namespace
{
const std::string g_strClosed = "Info: Client connection has been closed.\n";

std::string TodaysLog(const CServerProcess& rServer)
{
    const std::time_t tNow = std::time(nullptr);
    const std::tm* pTm = std::localtime(&tNow);
    const std::string strName = "gpu" + std::to_string(pTm->tm_mon + 1) +
                                std::to_string(pTm->tm_mday) + std::to_string(pTm->tm_year + 1900) +
                                ".log";
    std::ifstream aFile(rServer.GetHome() / "temp" / strName);
    std::ostringstream aText;
    aText << aFile.rdbuf();
    return aText.str();
}

TEST(Session, AnswersBothByteOrdersAndCountsSerialsAcrossClients)
{
    CServerProcess aServer;
    aServer.Start();
    std::uint32_t uiExpected = 0;
    for (const bool bSwap : {false, true, false})
    {
        SCOPED_TRACE(bSwap ? "swapped" : "native");
        CRawClient aClient(aServer.GetPort(), bSwap);
        ASSERT_TRUE(aClient.IsConnected());
        ASSERT_TRUE(aClient.Send(Msg::eByteOrder, {0x1234ABCDu}));
        for (int i = 0; i < 2; ++i)
        {
            const auto aReply = aClient.Ask(Msg::eServerProp);
            ASSERT_TRUE(aReply);
            EXPECT_EQ(aReply->Type(), Msg::eDataReply);
            EXPECT_EQ(aReply->Serial(), uiExpected++);
            EXPECT_EQ(aReply->OptSize(), 0u);
            EXPECT_GT(aReply->Field(6) + aReply->Field(7), 0u);
        }
        ASSERT_TRUE(aClient.Send(Msg::eQuit));
        const auto aQuit = aClient.Receive();
        ASSERT_TRUE(aQuit);
        EXPECT_EQ(aQuit->Type(), Msg::eQuit);
        EXPECT_EQ(aQuit->Serial(), uiExpected);
        uiExpected += 2;  // the quit handler runs twice; the second packet meets a closed socket
        EXPECT_TRUE(aClient.IsClosedByPeer());
    }
    EXPECT_TRUE(aServer.WaitForOutput(g_strClosed, 6));
    EXPECT_EQ(aServer.CountInOutput("Info:  Need to swap byte.\n"), 1);
    EXPECT_EQ(aServer.CountInOutput("Info:  do not swap byte.\n"), 2);
}

TEST(Session, LogsEveryPacketOnTheConsoleAndInTheFileOfTheDay)
{
    CServerProcess aServer;
    aServer.Start();
    {
        CRawClient aClient(aServer.GetPort());
        ASSERT_TRUE(aClient.Send(Msg::eByteOrder, {0x1234ABCDu}));  // serial 101
        ASSERT_TRUE(aClient.Send(Msg::eCompReply));                 // has no name in the log
        ASSERT_TRUE(aClient.Receive());
        ASSERT_TRUE(aClient.Send(4711));
        ASSERT_TRUE(aClient.Send(Msg::eCtfOpt));
        ASSERT_TRUE(aClient.Send(Msg::eLog, {}, {1, 2, 3}));
    }
    ASSERT_TRUE(aServer.WaitForOutput(g_strClosed, 2));
    const std::string strLog = TodaysLog(aServer);
    for (const char* pcLine : {"Info: Client has been connected.\n",
                               "Info: Received packet. Msg: BYTEORDER, Serial: 101, OptSize: 0\n",
                               "Info: Received packet. Msg: UNKNOWN, Serial: 102, OptSize: 0\n",
                               "Info: Received packet. Msg: UNKNOWN, Serial: 103, OptSize: 0\n",
                               "Info: Received packet. Msg: CTFOPT, Serial: 104, OptSize: 0\n",
                               "Info: Received packet. Msg: LOG, Serial: 105, OptSize: 12\n",
                               "Error: Failed to receive client packet.\n"})
    {
        EXPECT_EQ(aServer.CountInOutput(pcLine), 1) << pcLine;
        EXPECT_EQ(CountIn(strLog, pcLine), 1) << pcLine;
    }
    EXPECT_EQ(CountIn(strLog, g_strClosed), 2);
    // The date line comes first, in the form of ctime.
    EXPECT_EQ(strLog.find(':'), 13u) << strLog;
    {
        CRawClient aSecond(aServer.GetPort());
    }
    ASSERT_TRUE(aServer.WaitForOutput(g_strClosed, 4));
    EXPECT_EQ(CountIn(TodaysLog(aServer), g_strClosed), 4);  // appended
}

TEST(Session, WorksWithoutALogFile)
{
    for (const char* pcHome : {"", "/nonexistent"})
    {
        CServerProcess aServer;
        aServer.Start({{"HOME", pcHome}});
        {
            CRawClient aClient(aServer.GetPort());
        }
        EXPECT_TRUE(aServer.WaitForOutput(g_strClosed, 2));
        EXPECT_TRUE(CRawClient(aServer.GetPort()).Ask(Msg::eServerProp));
    }
}

TEST(Session, SomeMessagesGetNoReply)
{
    CServerProcess aServer;
    aServer.Start();
    CRawClient aClient(aServer.GetPort());
    for (const std::uint32_t uiType :
         {Msg::eByteOrder, Msg::eContinuation, Msg::eLog, Msg::eCtfOpt})
        ASSERT_TRUE(aClient.Send(uiType, {0x1234ABCDu}));
    ASSERT_TRUE(aClient.Send(9999, {}, CRawClient::Words(100000)));
    EXPECT_TRUE(aClient.IsSilent(0.3));
    EXPECT_TRUE(aClient.Ask(Msg::eServerProp));
}

TEST(Session, InvalidTypeEndsTheClient)
{
    CServerProcess aServer;
    aServer.Start();
    CRawClient aClient(aServer.GetPort());
    ASSERT_TRUE(aClient.Send(Msg::eInvalid));
    const auto aQuit = aClient.Receive();
    ASSERT_TRUE(aQuit);
    EXPECT_EQ(aQuit->Type(), Msg::eQuit);
    EXPECT_TRUE(aClient.IsClosedByPeer());
    EXPECT_TRUE(aServer.WaitForOutput(g_strClosed, 1));
}

TEST(Session, SecondClientWaitsAndStartsFresh)
{
    CServerProcess aServer;
    aServer.Start();
    CRawClient aFirst(aServer.GetPort());
    ASSERT_TRUE(aFirst.Ask(Msg::eVolSize, {4, 4, 4}));
    CRawClient aSecond(aServer.GetPort());
    ASSERT_TRUE(aSecond.Send(Msg::eVolGet, {0}));
    EXPECT_TRUE(aSecond.IsSilent(0.3));
    aFirst.Close();
    const auto aReply = aSecond.Receive();
    ASSERT_TRUE(aReply);
    EXPECT_EQ(aReply->OptSize(), 0u);  // the volume of the first client is gone
    EXPECT_EQ(aReply->Field(5), 1u);
}

TEST(Session, SilentClientIsDroppedWhenAsked)
{
    const std::string strPort = std::to_string(CServerProcess::FindFreePort());
    CServerProcess aServer;
    aServer.Start({{"TALVEN_PORT", strPort}},
                  "ServerPort=" + strPort + "\nBackend=host\nIdleTimeout=1\n");
    CRawClient aSilent(aServer.GetPort());
    const auto aStart = std::chrono::steady_clock::now();
    EXPECT_TRUE(aSilent.IsClosedByPeer());
    EXPECT_GT(std::chrono::steady_clock::now() - aStart, std::chrono::milliseconds(700));
    EXPECT_TRUE(CRawClient(aServer.GetPort()).Ask(Msg::eServerProp));
}
}  // namespace
