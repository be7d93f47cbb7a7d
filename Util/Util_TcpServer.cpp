#include "Util/Util_TcpServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <thread>

#include "Util/Util_Activation.h"
#include "Util/Util_TcpSocket.h"

int Util_TcpServer::m_iServerSock = -1;

namespace
{
void SetOption(int iSocket, int iLevel, int iOption, int iValue)
{
    setsockopt(iSocket, iLevel, iOption, &iValue, sizeof iValue);
}

/// A peer that died without a word is noticed after about two minutes. What TCP alone has fails on
/// a Unix socket, whose peer cannot die so.
void SetClientOptions(int iSocket, float fIdleTimeout)
{
    SetOption(iSocket, SOL_SOCKET, SO_KEEPALIVE, 1);
    SetOption(iSocket, IPPROTO_TCP, TCP_NODELAY, 1);
#ifdef TCP_KEEPIDLE
    SetOption(iSocket, IPPROTO_TCP, TCP_KEEPIDLE, 60);
    SetOption(iSocket, IPPROTO_TCP, TCP_KEEPINTVL, 15);
    SetOption(iSocket, IPPROTO_TCP, TCP_KEEPCNT, 4);
#endif
    if (fIdleTimeout <= 0.0f) return;
    const auto iMicroseconds = static_cast<long long>(1e6 * fIdleTimeout);
    const timeval aWait = {static_cast<time_t>(iMicroseconds / 1000000),
                           static_cast<suseconds_t>(std::max(iMicroseconds % 1000000, 1LL))};
    setsockopt(iSocket, SOL_SOCKET, SO_RCVTIMEO, &aWait, sizeof aWait);
    setsockopt(iSocket, SOL_SOCKET, SO_SNDTIMEO, &aWait, sizeof aWait);
}

/// The client waits in the queue until there is enough again.
bool IsShortage(int iError)
{
    return iError == EMFILE || iError == ENFILE || iError == ENOBUFS || iError == ENOMEM;
}

/// Not the listening socket but the one client has failed: its connection ended before it was
/// accepted, or its network did.
bool HasClientGone(int iError)
{
    constexpr int aiErrors[] = {ECONNABORTED, EPROTO,       ENETDOWN,    ENOPROTOOPT,
                                EHOSTDOWN,    EHOSTUNREACH, ENETUNREACH, EPERM};
    return std::ranges::find(aiErrors, iError) != std::end(aiErrors);
}

int Accept(int iSocket)
{
    int iClient = -1;
    do iClient = accept4(iSocket, nullptr, nullptr, SOCK_CLOEXEC);
    while (iClient == -1 && (errno == EINTR || HasClientGone(errno)));
    return iClient;
}

void Pause()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
}

bool Bind(int iSocket, int iPort, const std::string& strAddress)
{
    if (iPort < 0 || iPort > 65535) return false;
    sockaddr_in aAddress = {};
    aAddress.sin_family = AF_INET;
    aAddress.sin_port = htons(static_cast<std::uint16_t>(iPort));
    aAddress.sin_addr.s_addr = htonl(INADDR_ANY);
    if (!strAddress.empty() && inet_pton(AF_INET, strAddress.c_str(), &aAddress.sin_addr) != 1)
        return false;
    return bind(iSocket, reinterpret_cast<sockaddr*>(&aAddress), sizeof aAddress) == 0;
}
}  // namespace

void Util_TcpServer::DeleteInstance()
{
    Util_Singleton::DeleteInstance();
    CloseServer();
}

Util_TcpServer::~Util_TcpServer()
{
    Util_TcpSocket::CloseSocket(m_iClientSock);
}

bool Util_TcpServer::CreateServer(int iPort, const std::string& strAddress)
{
    if (m_iServerSock != -1) return true;
    m_iServerSock = Util_TcpSocket::CreateSocket();
    if (m_iServerSock == -1)
    {
        std::puts("Util_TcpServer: Unable to create server socket.");
        return false;
    }
    SetOption(m_iServerSock, SOL_SOCKET, SO_REUSEADDR, 1);
    if (!Bind(m_iServerSock, iPort, strAddress))
    {
        std::puts("Util_TcpServer: Unable to bind server socket");
        CloseServer();
        return false;
    }
    listen(m_iServerSock, 10);
    return true;
}

bool Util_TcpServer::TakeServer(int iSocket)
{
    if (!Util_Activation::IsListening(iSocket))
    {
        std::printf("Util_TcpServer: Descriptor %d is no listening stream socket.\n", iSocket);
        return false;
    }
    CloseServer();
    m_iServerSock = iSocket;
    // Whoever made it may have let accept() return without a client, in this process too.
    fcntl(iSocket, F_SETFL, fcntl(iSocket, F_GETFL) & ~O_NONBLOCK);
    return true;
}

void Util_TcpServer::CloseServer()
{
    Util_TcpSocket::CloseSocket(m_iServerSock);
    m_iServerSock = -1;
}

int Util_TcpServer::GetPort()
{
    return m_iServerSock == -1 ? 0 : Util_TcpSocket::GetPort(m_iServerSock);
}

void Util_TcpServer::CloseClient()
{
    Util_TcpSocket::CloseSocket(m_iClientSock);
    m_iClientSock = -1;
}

int Util_TcpServer::ConnectClient(float fSeconds)
{
    if (m_iClientSock != -1) return 1;
    m_iShortage = 0;
    const bool bWaited = Util_TcpSocket::CheckReadEvent(m_iServerSock, fSeconds);
    if (bWaited) m_iClientSock = Accept(m_iServerSock);
    if (m_iClientSock == -1)
    {
        if (IsShortage(errno)) m_iShortage = errno;
        Pause();
        return bWaited && m_iShortage == 0 ? -1 : 0;
    }
    SetClientOptions(m_iClientSock, m_fIdleTimeout);
    return 1;
}

void Util_TcpServer::TakeClient(int iSocket)
{
    CloseClient();
    m_iClientSock = iSocket;
}

bool Util_TcpServer::CanRecvNow(float fSeconds)
{
    return m_iClientSock != -1 && Util_TcpSocket::CheckReadEvent(m_iClientSock, fSeconds);
}

bool Util_TcpServer::CanSendNow(float fSeconds)
{
    return m_iClientSock != -1 && Util_TcpSocket::CheckWriteEvent(m_iClientSock, fSeconds);
}

bool Util_TcpServer::DoRecv(void* pvBuffer, std::size_t tBytes)
{
    if (m_iClientSock == -1) return false;
    std::signal(SIGPIPE, SIG_IGN);
    return Util_TcpSocket::RecvAll(m_iClientSock, pvBuffer, tBytes);
}

bool Util_TcpServer::DoSend(const void* pvBuffer, std::size_t tBytes)
{
    return DoSend(pvBuffer, tBytes, nullptr, 0);
}

bool Util_TcpServer::DoSend(const void* pvFirst, std::size_t tFirst, const void* pvSecond,
                            std::size_t tSecond)
{
    if (m_iClientSock == -1) return false;
    std::signal(SIGPIPE, SIG_IGN);
    if (Util_TcpSocket::SendBoth(m_iClientSock, pvFirst, tFirst, pvSecond, tSecond)) return true;
    // The stream may have broken off in a packet. What is sent next, QUIT, would wait once more for
    // a client that takes nothing.
    shutdown(m_iClientSock, SHUT_RDWR);
    return false;
}
