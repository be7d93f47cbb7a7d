#include "talven/Connection.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>
#include <memory>

#include "talven/Text.h"

namespace talven
{
namespace
{

using Clock = std::chrono::steady_clock;

int MillisecondsLeft(Clock::time_point tDeadline)
{
    const auto tLeft =
        std::chrono::duration_cast<std::chrono::milliseconds>(tDeadline - Clock::now()).count();
    return static_cast<int>(std::max<long long>(tLeft, 0));
}

void SetOption(int iSocket, int iLevel, int iName, int iValue)
{
    setsockopt(iSocket, iLevel, iName, &iValue, sizeof(iValue));
}

/// Headers leave at once; a peer that died in the middle of a job of hours is noticed.
void Tune(int iSocket)
{
    SetOption(iSocket, IPPROTO_TCP, TCP_NODELAY, 1);
    SetOption(iSocket, SOL_SOCKET, SO_KEEPALIVE, 1);
    SetOption(iSocket, IPPROTO_TCP, TCP_KEEPIDLE, 60);
    SetOption(iSocket, IPPROTO_TCP, TCP_KEEPINTVL, 20);
    SetOption(iSocket, IPPROTO_TCP, TCP_KEEPCNT, 6);
}

}  // namespace

bool CConnection::Connect(const std::string& strHost, std::uint16_t usPort,
                          std::chrono::milliseconds tTimeout)
{
    Close();
    m_bInterrupted = false;
    m_tSend = m_tRecv = std::chrono::milliseconds(-1);
    const Clock::time_point tDeadline = Clock::now() + tTimeout;

    if (mIsInterrupted()) return mFail("interrupted");
    addrinfo aHints{};
    aHints.ai_family = AF_UNSPEC;
    aHints.ai_socktype = SOCK_STREAM;
    addrinfo* pFound = nullptr;
    const int iResult =
        getaddrinfo(strHost.c_str(), std::to_string(usPort).c_str(), &aHints, &pFound);
    if (iResult != 0) return mFail("cannot find host " + strHost + ": " + gai_strerror(iResult));
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> pAddresses(pFound, &freeaddrinfo);

    for (const addrinfo* pNext = pFound; pNext != nullptr; pNext = pNext->ai_next)
    {
        if (mTryAddress(*pNext, tDeadline)) return true;
        if (m_bInterrupted) return false;
    }
    return mFail("cannot reach a server at " + strHost + ":" + std::to_string(usPort) + ": " +
                 m_strError);
}

bool CConnection::mTryAddress(const addrinfo& rAddress, Clock::time_point tDeadline)
{
    m_iSocket = socket(rAddress.ai_family, rAddress.ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK,
                       rAddress.ai_protocol);
    if (m_iSocket == -1) return mFail(std::strerror(errno));
    if (connect(m_iSocket, rAddress.ai_addr, rAddress.ai_addrlen) != 0)
    {
        if (errno != EINPROGRESS && errno != EINTR) return mFail(std::strerror(errno));
        if (!mWait(POLLOUT, MillisecondsLeft(tDeadline))) return false;
        int iError = 0;
        socklen_t iBytes = sizeof(iError);
        getsockopt(m_iSocket, SOL_SOCKET, SO_ERROR, &iError, &iBytes);
        if (iError != 0) return mFail(std::strerror(iError));
    }
    Tune(m_iSocket);
    return true;
}

void CConnection::Take(int iSocket)
{
    Close();
    m_bInterrupted = false;
    m_tSend = m_tRecv = std::chrono::milliseconds(-1);
    m_iSocket = iSocket;
    fcntl(iSocket, F_SETFL, fcntl(iSocket, F_GETFL) | O_NONBLOCK);
}

void CConnection::SetLimits(std::chrono::milliseconds tSend, std::chrono::milliseconds tRecv)
{
    m_tSend = tSend;
    m_tRecv = tRecv;
    // Not less than the limit: the kernel also counts the time in which a living peer, that is
    // behind with its work, has no room for more.
    if (tSend.count() > 0)
        SetOption(m_iSocket, IPPROTO_TCP, TCP_USER_TIMEOUT, static_cast<int>(tSend.count()));
}

void CConnection::Close()
{
    if (m_iSocket != -1) close(m_iSocket);
    m_iSocket = -1;
}

bool CConnection::mFail(const std::string& strError)
{
    m_strError = strError;
    Close();
    return false;
}

bool CConnection::mIsInterrupted()
{
    pollfd aPoll = {m_iInterruptFd, POLLIN, 0};
    m_bInterrupted = poll(&aPoll, 1, 0) > 0;
    return m_bInterrupted;
}

/// Waits until the socket is ready; a time-out of -1 is none.
bool CConnection::mWait(short sEvents, int iTimeoutMs)
{
    const Clock::time_point tDeadline = Clock::now() + std::chrono::milliseconds(iTimeoutMs);
    while (true)
    {
        pollfd aPoll[2] = {{m_iSocket, sEvents, 0}, {m_iInterruptFd, POLLIN, 0}};
        const int iReady = poll(aPoll, 2, iTimeoutMs < 0 ? -1 : MillisecondsLeft(tDeadline));
        if (iReady < 0 && errno != EINTR) return mFail(std::strerror(errno));
        if (iReady == 0) return mFail(Format("no answer for %.3g s", iTimeoutMs / 1000.0));
        if (iReady < 0) continue;
        if (aPoll[1].revents != 0)
        {
            m_bInterrupted = true;
            return mFail("interrupted");
        }
        if (aPoll[0].revents != 0) return true;
    }
}

bool CConnection::mAwait(short sEvents, std::chrono::milliseconds tLimit)
{
    if (!IsOpen()) return mFail("not connected");
    const auto iMost = std::chrono::milliseconds(std::numeric_limits<int>::max());
    return mWait(sEvents, static_cast<int>(std::min(tLimit, iMost).count()));
}

bool CConnection::Send(std::initializer_list<std::span<const std::byte>> aBlocks)
{
    if (!IsOpen()) return mFail("not connected");
    std::array<iovec, 4> aVectors{};
    std::size_t tCount = 0;
    std::size_t tLeft = 0;
    for (const auto& pBlock : aBlocks)
    {
        if (pBlock.empty()) continue;
        if (tCount == aVectors.size()) return mFail("too many blocks in one packet");
        aVectors[tCount++] = {const_cast<std::byte*>(pBlock.data()), pBlock.size()};
        tLeft += pBlock.size();
    }

    std::size_t tFirst = 0;
    while (tLeft > 0)
    {
        msghdr aMessage{};
        aMessage.msg_iov = aVectors.data() + tFirst;
        aMessage.msg_iovlen = tCount - tFirst;
        const ssize_t iSent = sendmsg(m_iSocket, &aMessage, MSG_NOSIGNAL);
        if (iSent < 0)
        {
            if (errno == EINTR) continue;
            if (errno != EAGAIN) return mFail(std::string("connection lost: ") + strerror(errno));
            if (!mAwait(POLLOUT, m_tSend)) return false;
            continue;
        }
        tLeft -= static_cast<std::size_t>(iSent);
        std::size_t tDone = static_cast<std::size_t>(iSent);
        while (tFirst < tCount && tDone >= aVectors[tFirst].iov_len)
            tDone -= aVectors[tFirst++].iov_len;
        if (tDone > 0)
        {
            aVectors[tFirst].iov_base = static_cast<std::byte*>(aVectors[tFirst].iov_base) + tDone;
            aVectors[tFirst].iov_len -= tDone;
        }
    }
    return true;
}

bool CConnection::Recv(std::span<std::byte> pData)
{
    if (!IsOpen()) return mFail("not connected");
    while (!pData.empty())
    {
        const ssize_t iGot = recv(m_iSocket, pData.data(), pData.size(), 0);
        if (iGot > 0)
        {
            pData = pData.subspan(static_cast<std::size_t>(iGot));
            continue;
        }
        if (iGot == 0) return mFail("connection lost: the server closed it");
        if (errno == EINTR) continue;
        if (errno != EAGAIN) return mFail(std::string("connection lost: ") + strerror(errno));
        if (!mAwait(POLLIN, m_tRecv)) return false;
    }
    return true;
}

}  // namespace talven
