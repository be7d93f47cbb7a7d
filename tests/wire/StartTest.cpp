#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "tests/wire/Messages.h"
#include "tests/wire/RawClient.h"
#include "tests/wire/ServerProcess.h"

namespace
{
std::string PortText(int iPort)
{
    return std::to_string(iPort);
}

TEST(Start, EndsWithACodeThatTellsWhy)
{
    ServerProcess aHolder;  // takes a port
    aHolder.Start();
    ASSERT_TRUE(RawClient(aHolder.GetPort()).IsConnected());
    const std::string strTaken = PortText(aHolder.GetPort());

    const struct
    {
        const char* pcWhat;
        ServerProcess::Environment aEnvironment;
        std::string strConfig;
        int iCode;
        std::string strLine;
    } aCases[] = {
        {"port taken",
         {{"TALVEN_PORT", strTaken}},
         "",
         254,
         "Util_TcpServer: Unable to bind server socket\nError: Unable to create server socket."},
        {"bad address", {{"TALVEN_BIND", "nowhere"}}, "", 254, "Unable to bind server socket"},
        {"all devices busy",
         {{"TALVEN_BUSY_GPUS", "0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15"}},
         "",
         255,
         "Error: GPU devices are not found.\n"},
        {"unknown backend",
         {{"TALVEN_BACKEND", "abacus"}},
         "",
         255,
         "Info: 0 devices available.\nError: GPU devices are not found.\nError: unknown backend"},
        {"all devices busy by file",
         {},
         "BusyGpus = 0, 1, 2,3,4,5,6,7,8,9,10,11,12,13,14,15\nBackend=host\n",
         255,
         "Error: GPU devices are not found.\n"},
    };
    for (const auto& rCase : aCases)
    {
        SCOPED_TRACE(rCase.pcWhat);
        std::string strOutput;
        EXPECT_EQ(ServerProcess::RunToEnd(rCase.aEnvironment, rCase.strConfig, strOutput),
                  rCase.iCode);
        EXPECT_NE(strOutput.find(rCase.strLine), std::string::npos) << strOutput;
    }
}

TEST(Start, TakesSettingsFromTheFileOrElseFromTheEnvironment)
{
    const int iPort = ServerProcess::FindFreePort(), iOther = ServerProcess::FindFreePort();
    const std::string strFile = "BindAddress=127.0.0.1\nBackend=host\nMemoryPercentage=0.3\n";
    const struct
    {
        const char* pcWhat;
        std::string strEnvironmentPort;
        std::string strConfig;
        int iListens;
    } aCases[] = {
        {"environment alone", PortText(iPort), "", iPort},
        {"file wins", PortText(iOther), "serverport = " + PortText(iPort) + "\n" + strFile, iPort},
        {"blanks in keys", PortText(iOther), "Server Port=" + PortText(iPort) + "\n" + strFile,
         iPort},
    };
    for (const auto& rCase : aCases)
    {
        SCOPED_TRACE(rCase.pcWhat);
        ServerProcess aServer;
        aServer.Start({{"TALVEN_PORT", rCase.strEnvironmentPort}}, rCase.strConfig);
        RawClient aClient(rCase.iListens);
        ASSERT_TRUE(aClient.IsConnected());
        EXPECT_TRUE(aClient.Ask(Msg::eServerProp));
    }
}

bool Reaches(const std::string& strAddress, int iPort)
{
    sockaddr_in aAddress = {};
    aAddress.sin_family = AF_INET;
    aAddress.sin_port = htons(static_cast<std::uint16_t>(iPort));
    inet_pton(AF_INET, strAddress.c_str(), &aAddress.sin_addr);
    const int iSocket = socket(AF_INET, SOCK_STREAM, 0);
    const bool bDone =
        connect(iSocket, reinterpret_cast<sockaddr*>(&aAddress), sizeof aAddress) == 0;
    close(iSocket);
    return bDone;
}

TEST(Start, ListensOnTheAddressThatIsBound)
{
    const std::string strHere = "127.0.0.1", strThere = "127.0.0.2";
    for (const std::string& strBound : {std::string(), strHere, strThere})
        for (const bool bFile : {false, true})
        {
            SCOPED_TRACE("bound to " + strBound + (bFile ? " by file" : " by environment"));
            const std::string strPort = PortText(ServerProcess::FindFreePort());
            const std::string strFile =
                "ServerPort=" + strPort + "\nBackend=host\nBindAddress=" + strBound + "\n";
            ServerProcess aServer;
            aServer.Start({{"TALVEN_PORT", strPort}, {"TALVEN_BIND", bFile ? "1.2.3.4" : strBound}},
                          bFile ? strFile : "");
            ASSERT_TRUE(aServer.WaitForOutput("Info: GPU 0 is used"));
            for (int i = 0;
                 i < 500 && !Reaches(strBound.empty() ? strHere : strBound, aServer.GetPort()); ++i)
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            for (const std::string& strAddress : {strHere, strThere})
                EXPECT_EQ(Reaches(strAddress, aServer.GetPort()),
                          strBound.empty() || strAddress == strBound)
                    << strAddress;
        }
}

TEST(Start, SaysWhatItRunsOn)
{
    ServerProcess aServer;
    aServer.Start({{"TALVEN_BUSY_GPUS", "1,20,2"}});  // the list ends at 20
    RawClient aClient(aServer.GetPort());
    ASSERT_TRUE(aClient.IsConnected());
    ASSERT_TRUE(aServer.WaitForOutput("Info: Client has been connected."));
    const std::string strOutput = aServer.GetOutput();
    EXPECT_EQ(CountIn(strOutput, "Info: Backend host ("), 1) << strOutput;
    EXPECT_NE(strOutput.find("asked for"), std::string::npos) << strOutput;
    EXPECT_EQ(CountIn(strOutput, " devices available.\n"), 1) << strOutput;
    EXPECT_EQ(CountIn(strOutput, "Info: GPU 0 is used for computation.\n"), 1) << strOutput;
    EXPECT_EQ(CountIn(strOutput, "Info: GPU 1 is used for computation.\n"), 0) << strOutput;
}

TEST(Start, MemoryFollowsTheClampedFraction)
{
    auto GetMiB = [](const char* pcFraction)
    {
        ServerProcess aServer;
        aServer.Start({{"TALVEN_MEMORY_PCT", pcFraction}});
        const auto aReply = RawClient(aServer.GetPort()).Ask(Msg::eServerProp);
        if (!aReply) return -1.0;
        EXPECT_EQ(aReply->Field(6) % (1u << 20), 0u);
        return aReply->Field(6) / 1048576.0 + 4096.0 * aReply->Field(7);
    };
    const double dHalf = GetMiB("");
    ASSERT_GT(dHalf, 0);
    EXPECT_NEAR(GetMiB("0.35") / dHalf, 0.7, 0.01);
    EXPECT_NEAR(GetMiB("0.1") / dHalf, 0.4, 0.01);
    EXPECT_NEAR(GetMiB("50") / dHalf, 1.6, 0.01);
    EXPECT_NEAR(GetMiB("0.7 ") / dHalf, 1.0, 0.01);  // trailing blank: rejected
}
}  // namespace
