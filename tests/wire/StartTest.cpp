// Settings, start-up lines and exit codes.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <regex>

#include "tests/wire/RawClient.h"
#include "tests/wire/ServerProcess.h"

namespace
{
const std::string g_strAllBusy = "0, 1, 2,3,4,5,6,7,8,9,10,11,12,13,14,15";

TEST(Start, EndsWithACodeThatTellsWhy)
{
    CServerProcess aHolder;  // takes a port
    aHolder.Start();
    ASSERT_TRUE(CRawClient(aHolder.GetPort()).IsConnected());
    const std::string strTaken = std::to_string(aHolder.GetPort());
    const std::string strNoServer = "Error: Unable to create server socket.";
    const std::string strNoDevice = "Error: GPU devices are not found.\n";
    const struct
    {
        CServerProcess::Environment aEnvironment;
        std::string strConfig;
        int iCode;
        std::string strEnd;
    } aCases[] = {
        {{{"TALVEN_PORT", strTaken}},
         "",
         254,
         "Util_TcpServer: Unable to bind server socket\n" + strNoServer},
        {{{"TALVEN_BIND", "nowhere"}}, "", 254, strNoServer},
        {{{"TALVEN_BUSY_GPUS", g_strAllBusy}}, "", 255, " devices available.\n" + strNoDevice},
        {{}, "BusyGpus = " + g_strAllBusy + "\nBackend=host\n", 255, strNoDevice},
        {{{"TALVEN_BACKEND", "abacus"}},
         "",
         255,
         "Info: 0 devices available.\n" + strNoDevice +
             "Error: unknown backend \"abacus\", must be "
             "auto, cuda, cuda-exact or host\n"},
    };
    for (const auto& rCase : aCases)
    {
        CServerProcess aServer;
        aServer.Start(rCase.aEnvironment, rCase.strConfig);
        EXPECT_EQ(aServer.WaitForEnd(), rCase.iCode);
        EXPECT_TRUE(aServer.GetOutput().ends_with(rCase.strEnd)) << aServer.GetOutput();
    }
}

bool Reaches(const std::string& strAddress, int iPort)
{
    sockaddr_in aAddress = {};
    aAddress.sin_family = AF_INET;
    aAddress.sin_port = htons(static_cast<std::uint16_t>(iPort));
    inet_pton(AF_INET, strAddress.c_str(), &aAddress.sin_addr);
    const int iSocket = socket(AF_INET, SOCK_STREAM, 0);
    const int iResult = connect(iSocket, reinterpret_cast<sockaddr*>(&aAddress), sizeof aAddress);
    close(iSocket);
    return iResult == 0;
}

TEST(Start, TakesSettingsFromTheFileOrElseFromTheEnvironment)
{
    const std::string strPort = std::to_string(CServerProcess::FindFreePort());
    const std::string strFile =
        "serverport = " + strPort + "\nMemoryPercentage=0.3\nBackend=host\n";
    const struct
    {
        std::string strPort, strBind, strConfig;
        bool bHere, bThere;  // reached at 127.0.0.1 and 127.0.0.2
    } aCases[] = {{strPort, "", "", true, true},
                  {strPort, "127.0.0.1", "", true, false},
                  {strPort, "127.0.0.2", "", false, true},
                  {"1", "127.0.0.1", strFile, true, true},
                  {"1", "127.0.0.1", "Bind Address = 127.0.0.2\n" + strFile, false, true}};
    for (const auto& rCase : aCases)
    {
        SCOPED_TRACE(rCase.strBind + " " + rCase.strConfig);
        CServerProcess aServer;
        aServer.Start({{"TALVEN_PORT", rCase.strPort}, {"TALVEN_BIND", rCase.strBind}},
                      rCase.strConfig);
        const std::string strAddress = rCase.bHere ? "127.0.0.1" : "127.0.0.2";
        for (int i = 0; i < 500 && !Reaches(strAddress, std::stoi(strPort)); ++i) usleep(20000);
        EXPECT_EQ(Reaches("127.0.0.1", std::stoi(strPort)), rCase.bHere);
        EXPECT_EQ(Reaches("127.0.0.2", std::stoi(strPort)), rCase.bThere);
    }
}

TEST(Start, SaysWhatItRunsOn)
{
    CServerProcess aServer;
    aServer.Start({{"TALVEN_BUSY_GPUS", "1,20,2"}});  // the list ends at 20
    ASSERT_TRUE(CRawClient(aServer.GetPort()).IsConnected());
    ASSERT_TRUE(aServer.WaitFor("Info: Client has been connected."));
    const std::regex aStart(
        "Info: Backend host \\([^\n]*asked for[^\n]*\\.\nInfo: \\d+ devices available\\.\n"
        "Info: GPU 0 is used for computation\\.\n(Info: GPU [2-9]\\d* is used for "
        "computation\\.\n)*[^\n]{24}\nInfo: Client has been connected\\.\n[^]*");
    EXPECT_TRUE(std::regex_match(aServer.GetOutput(), aStart)) << aServer.GetOutput();
}

TEST(Start, MemoryFollowsTheClampedFraction)
{
    const auto GetMiB = [](const char* pcFraction)
    {
        CServerProcess aServer;
        aServer.Start({{"TALVEN_MEMORY_PCT", pcFraction}});
        CRawClient aClient(aServer.GetPort());
        EXPECT_EQ(aClient.Ask({Msg::eServerProp}), 0u);
        EXPECT_EQ(aClient.GetReply().Field(6) % (1u << 20), 0u);
        return aClient.GetReply().Field(6) / 1048576.0 + 4096.0 * aClient.GetReply().Field(7);
    };
    const double dHalf = GetMiB("");
    ASSERT_GT(dHalf, 0);
    for (const auto& [pcFraction, dRatio] :
         {std::pair{"0.35", 0.7}, {"0.1", 0.4}, {"50", 1.6}, {"0.7 ", 1.0}})  // a blank: no number
        EXPECT_NEAR(GetMiB(pcFraction) / dHalf, dRatio, 0.01) << pcFraction;
}
}  // namespace
