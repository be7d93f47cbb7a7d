#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include "Util/Util_TcpServer.h"
#include "Util/Util_TcpSocket.h"

namespace
{
constexpr const char* g_pcBind = "Util_TcpServer: Unable to bind server socket\n";
constexpr const char* g_pcCreate = "Util_TcpServer: Unable to create server socket.\n";

TEST(TcpServer, SaysWhatItCannotMakeOrBind)
{
    rlimit aLimit;
    getrlimit(RLIMIT_NOFILE, &aLimit);
    const rlimit aNone = {0, aLimit.rlim_max};  // no further descriptor
    for (const auto& [iPort, pcAddress, pcLine] : {std::tuple(-1, "", g_pcBind),
                                                   {65536, "", g_pcBind},
                                                   {0, "nowhere", g_pcBind},
                                                   {0, "192.0.2.1", g_pcBind},
                                                   {0, "", g_pcCreate}})
    {
        testing::internal::CaptureStdout();
        if (pcLine == g_pcCreate) setrlimit(RLIMIT_NOFILE, &aNone);
        EXPECT_FALSE(Util_TcpServer::CreateServer(iPort, pcAddress)) << iPort << pcAddress;
        setrlimit(RLIMIT_NOFILE, &aLimit);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), pcLine);
        EXPECT_EQ(Util_TcpServer::GetPort(), 0);
    }
}

TEST(TcpServer, KeepsTheFirstListeningSocket)
{
    Util_TcpServer& rServer = *Util_TcpServer::GetInstance();
    EXPECT_TRUE(Util_TcpServer::CreateServer(0, "127.0.0.1"));
    const int iPort = Util_TcpServer::GetPort();
    EXPECT_TRUE(Util_TcpServer::CreateServer(1));  // ignored
    EXPECT_EQ(Util_TcpServer::GetPort(), iPort);
    char acBytes[5];
    EXPECT_FALSE(rServer.CanRecvNow(0) || rServer.CanSendNow(0) || rServer.DoRecv(acBytes, 1) ||
                 rServer.DoSend(acBytes, 1));
    int aiSockets[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, aiSockets), 0);
    rServer.TakeClient(aiSockets[0]);
    EXPECT_EQ(rServer.ConnectClient(5), 1);  // the same one
    EXPECT_TRUE(Util_TcpSocket::CheckReadEvent(aiSockets[0], 0.05f)) << "a wait that runs out";
    EXPECT_TRUE(Util_TcpSocket::SendAll(aiSockets[1], "half", 4));
    Util_TcpSocket::CloseSocket(aiSockets[1]);
    EXPECT_FALSE(rServer.DoRecv(acBytes, 5));
    Util_TcpServer::DeleteInstance();
    EXPECT_EQ(Util_TcpServer::GetPort(), 0);
}
}  // namespace
