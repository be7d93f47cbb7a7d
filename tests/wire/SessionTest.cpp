// Settings, start-up lines and exit codes; what the console and the log say of one client after the
// other.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <regex>

#include "tests/model/Model.h"
#include "tests/wire/RawClient.h"
#include "tests/wire/ServerProcess.h"

namespace
{
TEST(Start, EndsWithACodeThatTellsWhy)
{
    CServerProcess aHolder;  // takes a port
    aHolder.Start();
    ASSERT_TRUE(CRawClient(aHolder.GetPort()).IsConnected());
    const std::string strTaken = std::to_string(aHolder.GetPort());
    const std::string strAllBusy = "0, 1, 2,3,4,5,6,7,8,9,10,11,12,13,14,15";
    const std::string strNoServer = "Error: Unable to create server socket.";
    const std::string strNoDevice = "Error: GPU devices are not found.\n";
    const std::string strUnknown =
        "Error: unknown backend \"abacus\", must be auto, cuda or host\n";
    const std::tuple<const char*, std::string, std::string, int, std::string> aCases[] = {
        {"TALVEN_PORT", strTaken, "", 254, "Unable to bind server socket\n" + strNoServer},
        {"TALVEN_BIND", "nowhere", "", 254, strNoServer},
        {"TALVEN_PORT", "1", "serverport = " + strTaken, 254, strNoServer},
        {"TALVEN_BIND", "127.0.0.1", "Bind Address = nowhere\n", 254, strNoServer},
        {"TALVEN_BUSY_GPUS", strAllBusy, "", 255, " devices available.\n" + strNoDevice},
        {"HOME", "", "BusyGpus = " + strAllBusy + "\nBackend=host\n", 255, strNoDevice},
        {"TALVEN_BACKEND", "abacus", "", 255, strNoDevice + strUnknown},
        {"TALVEN_BACKEND", "cuda", "", 255, strNoDevice + "Error: cuda: "}};
    for (const auto& [pcVariable, strValue, strConfig, iCode, strEnd] : aCases)
    {
        CServerProcess aServer;
        aServer.Start({{pcVariable, strValue}, {"CUDA_VISIBLE_DEVICES", "-1"}}, strConfig);
        EXPECT_EQ(aServer.WaitForEnd(), iCode) << pcVariable << strConfig;
        EXPECT_NE(aServer.GetOutput().find(strEnd), std::string::npos) << aServer.GetOutput();
    }
}

TEST(Start, ListensOnTheAddressThatIsBound)
{
    for (const char* const pcBound : {"127.0.0.1", ""})
    {
        CServerProcess aServer;
        aServer.Start({{"TALVEN_BIND", pcBound}});
        ASSERT_TRUE(CRawClient(aServer.GetPort()).IsConnected());
        EXPECT_EQ(CRawClient(aServer.GetPort(), 2, 1).IsConnected(), *pcBound == '\0') << pcBound;
    }
}

/// An address to listen on: a file of this name, or any port of the loopback where there is none.
struct Address
{
    explicit Address(const std::string& strFile)
    {
        auto* pUnix = reinterpret_cast<sockaddr_un*>(&aAny);
        auto* pIp = reinterpret_cast<sockaddr_in*>(&aAny);
        aAny.ss_family = strFile.empty() ? AF_INET : AF_UNIX;
        if (strFile.empty())
            pIp->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        else
            std::strncpy(pUnix->sun_path, strFile.c_str(), sizeof pUnix->sun_path - 1);
    }
    int Open(int iType = SOCK_STREAM)
    {
        const int iSocket = socket(aAny.ss_family, iType, 0);
        EXPECT_EQ(bind(iSocket, reinterpret_cast<sockaddr*>(&aAny), tSize), 0);
        EXPECT_EQ(getsockname(iSocket, reinterpret_cast<sockaddr*>(&aAny), &tSize), 0);
        return iSocket;
    }
    int Connect() const
    {
        const int iSocket = socket(aAny.ss_family, SOCK_STREAM, 0);
        EXPECT_EQ(connect(iSocket, reinterpret_cast<const sockaddr*>(&aAny), tSize), 0);
        return iSocket;
    }

    sockaddr_storage aAny = {};
    socklen_t tSize = sizeof(sockaddr_un);
};

TEST(Start, TakesTheSocketThatIsHandedOver)
{
    std::string strDirectory = testing::TempDir() + "talven-socket-XXXXXX", strConsole;
    ASSERT_NE(mkdtemp(strDirectory.data()), nullptr);
    const std::string strFile = strDirectory + "/socket";
    for (const std::string& strName : {std::string(), strFile})
    {
        Address aAddress(strName);
        const int iListening = aAddress.Open();
        ASSERT_EQ(listen(iListening, 2), 0);
        fcntl(iListening, F_SETFL, O_NONBLOCK);
        CRawClient aFirst(CRawClient::Socket{aAddress.Connect()});  // before there is a server
        CServerProcess aServer;
        aServer.HandOver(iListening);
        aServer.Start();
        for (int i = 0; i < 2; ++i)
        {
            CRawClient aLater(CRawClient::Socket{aAddress.Connect()});
            CRawClient& rClient = i == 0 ? aFirst : aLater;
            EXPECT_EQ(rClient.Ask({Msg::eProjSize, {2, 2, 1}, ToWords({0, 0})}), 0u);
            EXPECT_EQ(rClient.Ask({Msg::eProjSize, {2, 2, 0}}), 1u);
            aFirst.Close();
        }
        EXPECT_FALSE(CRawClient(aServer.GetPort(), 1, 1).IsConnected()) << "its own port is open";
        EXPECT_TRUE(aServer.WaitFor("connection has been closed", 3)) << aServer.GetOutput();
        const std::string strNow = std::regex_replace(aServer.GetOutput(), std::regex("\\d+"), "0");
        if (strName.empty()) strConsole = strNow;
        EXPECT_EQ(strNow, strConsole);
        close(iListening);
    }
    unlink(strFile.c_str());

    Address aNotListening(""), aDatagrams("");
    for (const int iSocket : {aNotListening.Open(), aDatagrams.Open(SOCK_DGRAM), open("/", 0)})
    {
        CServerProcess aServer;
        aServer.HandOver(iSocket);
        aServer.Start();
        EXPECT_EQ(aServer.WaitForEnd(), 254);
        EXPECT_TRUE(aServer.GetOutput().ends_with(
            "Util_TcpServer: Descriptor 3 is no listening stream socket.\n"
            "Error: Unable to create server socket."))
            << aServer.GetOutput();
        close(iSocket);
    }
    rmdir(strDirectory.c_str());
    CServerProcess aServer;  // for another process
    aServer.Start({{"LISTEN_PID", "1"}, {"LISTEN_FDS", "1"}});
    EXPECT_TRUE(CRawClient(aServer.GetPort()).IsConnected());
}

/// All messages, what the console says more, * for a number that measures, and the name in the log
/// where it is not the message's.
struct Said
{
    Request aRequest;
    const char* pcText = "";
    const char* pcName = nullptr;
};
const Words g_vuiTransform = {0, 1, Bits(1), 0, 0, Bits(1), 0, Bits(-2.5f), Bits(1), 0, Bits(9)};
const Words g_vuiCompare = {0, 1, 10, 20, Bits(1), 0, 0, Bits(1), 0, Bits(-2.5f), Bits(1), 0};
const Said g_aSaid[] = {
    {{Msg::eByteOrder, {0x1234ABCDu}}, "Info:  do not swap byte.\n"},
    {{Msg::eContinuation, {}, {1, 2}}, "", "CONTINUATION"},
    {{Msg::eLog, {}, {1, 2}}, "", "LOG"},
    {{Msg::eCtfOpt, {}, {1, 2}}, "", "CTFOPT"},
    {{4711, {}, {1, 2}}, "", "UNKNOWN"},
    {{Msg::eServerProp}, "GPU Memory (MB): Low, High, Total: *\n"},
    {{Msg::eProjGet, {3}}, "Error: PROJGET: projection 3 of 0\n"},
    {{Msg::eProjSize, {4, 2, 2}}, "CClientMain: Responding PROJSIZE\n"},
    {{Msg::eProjSet, {1}, Words(12)}, "CClientMain: Responding PROJSET\n"},
    {{Msg::eProjSet, {2}, Words(12)},
     "Error: PROJSET: projection 2 of 2\nCClientMain: Responding PROJSET\n"},
    {{Msg::eVolSize, {4, 2, 1}}},
    {{Msg::eVolSet, {0}, Words(8)}},
    {{Msg::eVolGet}},
    {{Msg::eSetOp, {1, 1}, {0}}},
    {{Msg::eReconOpt, {1, 1, 1}, {1, Bits(1)}}},
    {{Msg::eWeightOpt}},
    {{Msg::eSmoothOpt, {0, 1, 2, 1}}, "Handle SMOOTHOPT Command\nSmoothOpt: 1  2  1\n"},
    {{Msg::eSmoothOpt, {0, 1, 1, 1}, Words(2)},
     "Handle SMOOTHOPT Command\nError: SMOOTHOPT: 8 bytes of data, a kernel of 1 x 1 x 1 takes "
     "4\n"},
    {{Msg::eReconstruct}, "Info: Start reconstruction.\nRecon time (s) *\n"},
    {{Msg::eReconStatGet, {7}}, "Error: RECONSTATGET: iteration 7 of 1\n"},
    {{Msg::eReproject}, "Info: Start reprojection.\nProj time (s) *\n"},
    {{Msg::eMProjSize, {4, 3, 1}}, "MProjSize: 4  3  1\n"},
    {{Msg::eMProjSet, {0}, Words(12)}},
    {{Msg::eTransform, g_vuiTransform},
     "Transform: proj = 0  1\n   1.00    0.00    0.00    1.00    0.00   -2.50    1.00    0.00    "
     "9.00 \nTransform Time (s): *\n"},
    {{Msg::eTransforml, g_vuiTransform, {0, 0}}, "Transform Time (s): *\n"},
    {{Msg::eCompare, g_vuiCompare, {Bits(9)}},
     "Compare: 0  1  10  20\n   1.00    0.00    0.00    1.00    0.00   -2.50    1.00    0.00 \n"
     "Compare Time (s): *\n"},
    {{Msg::eComparel, g_vuiCompare, {0, 0, 0}},
     "Error: COMPAREL: 12 bytes of data, 16 needed\nCClientMain: Responding COMPAREL\n"},
    {{Msg::eCompReply}, "", "UNKNOWN"}};

TEST(Session, ConsoleAndLogTellWhatHappensToOneClientAfterTheOther)
{
    CServerProcess aServer;
    aServer.Start({{"TALVEN_BUSY_GPUS", "1,2,3,4,5,6,7,8,9,10,11,12,13,14,15"}});
    CRawClient aClient(aServer.GetPort());
    std::string strExpected =
        "Info: Backend host *.\nInfo: * devices available.\n"
        "Info: GPU 0 is used for computation.\n *\nInfo: Client has been connected.\n";
    std::uint32_t uiSerial = 0;
    for (const auto& [aRequest, pcText, pcName] : g_aSaid)
    {
        const Kind* const pKind = FindKind(aRequest.uiType);
        const std::string strName = pcName ? pcName : pKind->pcName, strText = pcText;
        ASSERT_TRUE(aClient.Send(aRequest));
        const std::string strSerial = std::to_string(aClient.GetLastSerial());
        strExpected += "Info: Received packet. Msg: " + strName + ", Serial: " + strSerial +
                       ", OptSize: " + std::to_string(aRequest.GetBytes()) + '\n' + strText;
        if (!pKind || pKind->uiReply == 0) continue;
        if (pKind->uiReply != Msg::eDataReply)
            strExpected += "CmdReply: ParentSerial = " + strSerial + '\n';
        const std::optional<Packet> aReply = aClient.Receive();
        ASSERT_TRUE(aReply) << strName;
        EXPECT_EQ(aReply->Field(5), strText.find("Error") == std::string::npos ? 0 : 1) << strName;
        EXPECT_EQ(aReply->Field(1), uiSerial++);
    }
    CRawClient aNext(aServer.GetPort());
    aNext.SetSwap(true);
    ASSERT_TRUE(aNext.Send({Msg::eByteOrder}) && aNext.Send({Msg::eVolGet, {0}}));
    EXPECT_TRUE(aNext.IsSilent(0.2));
    ASSERT_TRUE(aClient.Send({Msg::eQuit}));
    EXPECT_TRUE(aClient.IsClosedByPeer());
    const std::string strClosed = "Info: Client connection has been closed.\n\n\n";
    strExpected +=
        "Info: Received packet. Msg: QUIT, Serial: " + std::to_string(aClient.GetLastSerial()) +
        ", OptSize: 0\n" + strClosed + strClosed + " *\nInfo: Client has been connected.\n";
    const auto aReply = aNext.Receive();
    ASSERT_TRUE(aReply);
    EXPECT_EQ(aReply->Field(1), uiSerial + 2);  // the quit handler runs twice
    EXPECT_EQ(aReply->Field(5), 1u);            // the volume of the other client is gone

    std::string strOutput = aServer.GetOutput();
    const std::regex aLogged("(Info: .*\n|Error: .*\n|.{20}\\d{4}\n)|.*\n");  // and the date
    EXPECT_EQ(
        aServer.GetLog(),
        std::regex_replace(strOutput.substr(strOutput.find("computation.\n") + 13), aLogged, "$1"));
    strOutput.resize(strOutput.find("Info: Received packet. Msg: BYTEORDER", 1000));
    const std::regex aMeasured(
        "(time \\(s\\)|Time \\(s\\):|Total:|Backend host) *[-+.e0-9 ]*(\\(.*(?=\\.))?"
        "|(Info:) \\d+(?= devices)|([A-Z][a-z]{2} ){2}[ \\d]\\d [:\\d]{8} \\d{4}");
    EXPECT_EQ(std::regex_replace(strOutput, aMeasured, "$1$3 *"), strExpected);
}
}  // namespace
