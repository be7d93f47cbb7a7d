#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <tuple>

#include "Util/Util_Activation.h"
#include "Util/Util_TcpServer.h"
#include "Util/Util_TcpSocket.h"

TEST(TcpServer, ListensOnOnePortThatExists)
{
    testing::internal::CaptureStdout();
    EXPECT_FALSE(Util_TcpServer::CreateServer(-1) || Util_TcpServer::CreateServer(65536));
    const std::string strLine = "Util_TcpServer: Unable to bind server socket\n";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), strLine + strLine);
    rlimit aLimit;
    getrlimit(RLIMIT_NOFILE, &aLimit);
    const rlimit aNone = {0, aLimit.rlim_max};  // no further descriptor
    testing::internal::CaptureStdout();
    setrlimit(RLIMIT_NOFILE, &aNone);
    EXPECT_FALSE(Util_TcpServer::CreateServer(0) || Util_TcpServer::GetPort() != 0);
    setrlimit(RLIMIT_NOFILE, &aLimit);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Util_TcpServer: Unable to create server socket.\n");
    EXPECT_TRUE(Util_TcpServer::CreateServer(0, "127.0.0.1"));
    const int iPort = Util_TcpServer::GetPort();
    EXPECT_TRUE(Util_TcpServer::CreateServer(1) && Util_TcpServer::GetPort() == iPort);
    EXPECT_TRUE(Util_TcpSocket::CheckReadEvent(-1, 0.01f)) << "a wait that runs out";
    Util_TcpServer::DeleteInstance();
    EXPECT_EQ(Util_TcpServer::GetPort(), 0);
}

TEST(Activation, IsForThisProcessAndForNoneAfterIt)
{
    const std::string strSelf = std::to_string(getpid());
    for (const auto& [strPid, pcCount, iTaken] : {std::tuple(strSelf, "1", 3),
                                                  {strSelf, "7", 3},
                                                  {strSelf, "0", -1},
                                                  {strSelf, "-1", -1},
                                                  {strSelf, "x", -1},
                                                  {strSelf, "", -1},
                                                  {strSelf + "0", "1", -1},
                                                  {strSelf + " ", "1", -1},
                                                  {"", "1", -1}})
    {
        setenv("LISTEN_PID", strPid.c_str(), 1);
        setenv("LISTEN_FDS", pcCount, 1);
        EXPECT_EQ(Util_Activation::Take(), iTaken) << strPid << " " << pcCount;
        EXPECT_EQ(std::getenv("LISTEN_PID") == nullptr, iTaken == 3);
        EXPECT_EQ(std::getenv("LISTEN_FDS") == nullptr, iTaken == 3);
    }
    unsetenv("LISTEN_PID");
    unsetenv("LISTEN_FDS");
}
