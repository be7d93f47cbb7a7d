#include "fuzz/Peer.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <utility>

#include "Util/Util_TcpServer.h"
#include "Util/Util_TcpSocket.h"
#include "fuzz/Console.h"

CPeer::CPeer() : m_aThread([this] { mRun(); }) {}

CPeer::~CPeer()
{
    {
        const std::lock_guard aLock(m_aMutex);
        m_bStop = true;
        m_aCond.notify_all();
    }
    m_aThread.join();
}

void CPeer::Connect(std::span<const std::byte> aBytes, Sink fnSink, std::size_t tEnough)
{
    std::array<int, 2> aiPair = {};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, aiPair.data()) != 0)
        Broken("no socket pair, error %d", errno);
    Util_TcpServer::GetInstance()->TakeClient(aiPair[0]);
    const std::lock_guard aLock(m_aMutex);
    m_iSocket = aiPair[1];
    m_aBytes = aBytes;
    m_fnSink = std::move(fnSink);
    m_tEnough = tEnough;
    m_tGot = 0;
    m_bBusy = true;
    m_aCond.notify_all();
}

void CPeer::Finish()
{
    std::unique_lock aLock(m_aMutex);
    m_aCond.wait(aLock, [this] { return !m_bBusy; });
}

void CPeer::mRun()
{
    std::unique_lock aLock(m_aMutex);
    for (;;)
    {
        m_aCond.wait(aLock, [this] { return m_bBusy || m_bStop; });
        if (m_bStop) return;
        aLock.unlock();
        mTalk();
        aLock.lock();
        m_bBusy = false;
        m_aCond.notify_all();
    }
}

void CPeer::mTalk()
{
    bool bSending = true, bReading = true;
    while (bReading && (bSending || m_tGot < m_tEnough))
    {
        pollfd aPoll = {m_iSocket, static_cast<short>(bSending ? POLLIN | POLLOUT : POLLIN), 0};
        if (poll(&aPoll, 1, -1) < 0) continue;
        if (bSending && !mSend())
        {
            bSending = false;
            shutdown(m_iSocket, SHUT_WR);
        }
        bReading = mRecv();
    }
    Util_TcpSocket::CloseSocket(m_iSocket);
}

bool CPeer::mSend()
{
    if (m_aBytes.empty()) return false;
    const ssize_t tDone =
        send(m_iSocket, m_aBytes.data(), m_aBytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (tDone < 0) return errno == EAGAIN || errno == EINTR;
    m_aBytes = m_aBytes.subspan(static_cast<std::size_t>(tDone));
    return !m_aBytes.empty();
}

bool CPeer::mRecv()
{
    std::array<std::byte, 65536> aBuffer;
    const ssize_t tDone = recv(m_iSocket, aBuffer.data(), aBuffer.size(), MSG_DONTWAIT);
    if (tDone <= 0) return tDone < 0 && (errno == EAGAIN || errno == EINTR);
    m_tGot += static_cast<std::size_t>(tDone);
    m_fnSink(std::span(aBuffer).first(static_cast<std::size_t>(tDone)));
    return true;
}
