#include <gtest/gtest.h>
#include <sys/socket.h>

#include "Util/Util_TcpServer.h"
#include "Util/Util_TcpSocket.h"

TEST(TcpServer, ServesOnOnePort)
{
    testing::internal::CaptureStdout();
    EXPECT_FALSE(Util_TcpServer::CreateServer(-1) || Util_TcpServer::CreateServer(65536));
    const std::string strLine = "Util_TcpServer: Unable to bind server socket\n";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), strLine + strLine);
    EXPECT_EQ(Util_TcpServer::GetPort(), 0);
    EXPECT_TRUE(Util_TcpServer::CreateServer(0, "127.0.0.1"));
    const int iPort = Util_TcpServer::GetPort();
    EXPECT_TRUE(Util_TcpServer::CreateServer(1) && Util_TcpServer::GetPort() == iPort);

    Util_TcpServer& rServer = *Util_TcpServer::GetInstance();
    char acBytes[5];
    EXPECT_FALSE(rServer.CanRecvNow(0) || rServer.CanSendNow(0) || rServer.DoRecv(acBytes, 1) ||
                 rServer.DoSend(acBytes, 1));
    int aiSockets[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, aiSockets), 0);
    rServer.TakeClient(aiSockets[0]);
    EXPECT_EQ(rServer.ConnectClient(5), 1);  // the same one
    EXPECT_TRUE(Util_TcpSocket::CheckReadEvent(aiSockets[0], 0.05f)) << "a wait that runs out";
    Util_TcpSocket::CloseSocket(aiSockets[1]);
    Util_TcpServer::DeleteInstance();
    EXPECT_EQ(Util_TcpServer::GetPort(), 0);
}
