#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>
#include <vector>

#include "Util/Util_TcpServer.h"
#include "Util/Util_TcpSocket.h"
#include "Util/Util_Time.h"

namespace
{
int Connect(int iPort)
{
    const int iSocket = Util_TcpSocket::CreateSocket();
    sockaddr_in aAddress = {};
    aAddress.sin_family = AF_INET;
    aAddress.sin_port = htons(static_cast<std::uint16_t>(iPort));
    aAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return connect(iSocket, reinterpret_cast<sockaddr*>(&aAddress), sizeof aAddress) == 0 ? iSocket
                                                                                          : -1;
}

class Tcp : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(Util_TcpServer::CreateServer(0, "127.0.0.1"));
        m_pServer = Util_TcpServer::GetInstance();
    }
    void TearDown() override
    {
        Util_TcpSocket::CloseSocket(m_iClient);
        Util_TcpServer::DeleteInstance();
    }
    void ConnectClient()
    {
        m_iClient = Connect(Util_TcpServer::GetPort());
        ASSERT_NE(m_iClient, -1);
        ASSERT_EQ(m_pServer->ConnectClient(5), 1);
    }
    Util_TcpServer* m_pServer = nullptr;
    int m_iClient = -1;
};

TEST_F(Tcp, KeepsTheFirstListeningSocket)
{
    const int iPort = Util_TcpServer::GetPort();
    EXPECT_TRUE(Util_TcpServer::CreateServer(1));  // ignored
    EXPECT_EQ(Util_TcpServer::GetPort(), iPort);
    EXPECT_FALSE(m_pServer->CanRecvNow(0));
    char cByte = 0;
    EXPECT_FALSE(m_pServer->DoRecv(&cByte, 1));
    EXPECT_FALSE(m_pServer->DoSend(&cByte, 1));
    ConnectClient();
    EXPECT_EQ(m_pServer->ConnectClient(5), 1);  // the same one
    EXPECT_TRUE(m_pServer->DoRecv(&cByte, 0));
}

TEST_F(Tcp, WaitThatRunsOutCountsAsReady)
{
    ConnectClient();
    Util_Time aTime;
    aTime.Measure();
    EXPECT_TRUE(m_pServer->CanRecvNow(0.05f));
    EXPECT_GT(aTime.GetElapsedSeconds(), 0.04f);
    EXPECT_LT(aTime.GetElapsedSeconds(), 2.0f);
    EXPECT_FALSE(Util_TcpSocket::CheckReadEvent(9999, 0.01f));  // no such descriptor
}

TEST_F(Tcp, MovesAllBytesOrFails)
{
    ConnectClient();
    std::vector<char> vcSent(8 << 20), vcReceived(vcSent.size());
    for (std::size_t i = 0; i < vcSent.size(); ++i) vcSent[i] = static_cast<char>(i * 7 + i / 251);
    std::thread aEcho(
        [&]
        {
            std::vector<char> vcAll(vcSent.size() + 3);
            Util_TcpSocket::RecvAll(m_iClient, vcAll.data(), vcAll.size());
            Util_TcpSocket::SendAll(m_iClient, vcAll.data() + 3, vcSent.size());
            Util_TcpSocket::SendAll(m_iClient, "half a header", 13);
            shutdown(m_iClient, SHUT_RDWR);
        });
    EXPECT_TRUE(m_pServer->DoSend("abc", 3, vcSent.data(), vcSent.size()));
    EXPECT_TRUE(m_pServer->DoRecv(vcReceived.data(), vcReceived.size()));
    EXPECT_TRUE(vcSent == vcReceived);
    aEcho.join();
    EXPECT_FALSE(m_pServer->DoRecv(vcReceived.data(), 64));
    bool bSent = true;  // the first write may still go into the buffer of a closed peer
    for (int i = 0; i < 100 && bSent; ++i) bSent = m_pServer->DoSend(vcSent.data(), vcSent.size());
    EXPECT_FALSE(bSent);
}

TEST_F(Tcp, DropsAnIdleClient)
{
    m_pServer->SetIdleTimeout(0.1f);
    ConnectClient();
    char acBytes[4];
    EXPECT_FALSE(m_pServer->DoRecv(acBytes, sizeof acBytes));
}

TEST(TcpServer, RefusesWhatItCannotBind)
{
    for (const auto& [iPort, pcAddress] :
         {std::pair(-1, ""), {65536, ""}, {0, "nowhere"}, {0, "192.0.2.1"}})
        EXPECT_FALSE(Util_TcpServer::CreateServer(iPort, pcAddress)) << iPort << pcAddress;
}
}  // namespace
