#include "Util/Util_TcpSocket.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cmath>

namespace
{
using Clock = std::chrono::steady_clock;

/// poll() for one descriptor; goes on waiting after an interruption.
int Poll(int iSocket, short sEvents, float fSeconds)
{
    const bool bForEver = fSeconds < 0.0f;
    const auto aEnd = Clock::now() + std::chrono::microseconds(
                                         bForEver ? 0 : static_cast<long long>(fSeconds * 1e6f));
    for (;;)
    {
        int iWait = -1;
        if (!bForEver)
        {
            const auto aLeft = std::chrono::ceil<std::chrono::milliseconds>(aEnd - Clock::now());
            iWait = aLeft.count() > 0 ? static_cast<int>(aLeft.count()) : 0;
        }
        pollfd aPoll = {iSocket, sEvents, 0};
        const int iResult = poll(&aPoll, 1, iWait);
        if (iResult > 0 && (aPoll.revents & POLLNVAL) != 0) return -1;
        if (iResult >= 0) return iResult;
        if (errno != EINTR) return -1;
    }
}
}  // namespace

int Util_TcpSocket::CreateSocket()
{
    return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

void Util_TcpSocket::CloseSocket(int iSocket)
{
    if (iSocket != -1) close(iSocket);
}

bool Util_TcpSocket::CheckReadEvent(int iSocket, float fSeconds)
{
    return Poll(iSocket, POLLIN, fSeconds) != -1;
}

bool Util_TcpSocket::CheckWriteEvent(int iSocket, float fSeconds)
{
    return Poll(iSocket, POLLOUT, fSeconds) != -1;
}

int Util_TcpSocket::GetPort(int iSocket)
{
    sockaddr_storage aAddress = {};
    socklen_t tSize = sizeof aAddress;
    if (getsockname(iSocket, reinterpret_cast<sockaddr*>(&aAddress), &tSize) != 0) return 0;
    if (aAddress.ss_family != AF_INET && aAddress.ss_family != AF_INET6) return 0;
    // The port stands at the same place in both.
    return ntohs(reinterpret_cast<const sockaddr_in*>(&aAddress)->sin_port);
}

bool Util_TcpSocket::RecvAll(int iSocket, void* pvBuffer, std::size_t tBytes)
{
    char* pcNext = static_cast<char*>(pvBuffer);
    while (tBytes > 0)
    {
        const ssize_t tDone = recv(iSocket, pcNext, tBytes, 0);
        if (tDone < 0 && errno == EINTR) continue;
        if (tDone <= 0) return false;
        pcNext += tDone;
        tBytes -= static_cast<std::size_t>(tDone);
    }
    return true;
}

bool Util_TcpSocket::SendAll(int iSocket, const void* pvBuffer, std::size_t tBytes)
{
    return SendBoth(iSocket, pvBuffer, tBytes, nullptr, 0);
}

bool Util_TcpSocket::SendBoth(int iSocket, const void* pvFirst, std::size_t tFirst,
                              const void* pvSecond, std::size_t tSecond)
{
    iovec aBlocks[2] = {{const_cast<void*>(pvFirst), tFirst},
                        {const_cast<void*>(pvSecond), tSecond}};
    msghdr aMessage = {};
    aMessage.msg_iov = aBlocks;
    aMessage.msg_iovlen = 2;
    while (aBlocks[0].iov_len + aBlocks[1].iov_len > 0)
    {
        const ssize_t tDone = sendmsg(iSocket, &aMessage, MSG_NOSIGNAL);
        if (tDone < 0 && errno == EINTR) continue;
        if (tDone <= 0) return false;
        std::size_t tLeft = static_cast<std::size_t>(tDone);
        for (iovec& rBlock : aBlocks)
        {
            const std::size_t tStep = tLeft < rBlock.iov_len ? tLeft : rBlock.iov_len;
            rBlock.iov_base = static_cast<char*>(rBlock.iov_base) + tStep;
            rBlock.iov_len -= tStep;
            tLeft -= tStep;
        }
    }
    return true;
}
