#pragma once

#include <poll.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>

struct addrinfo;

namespace talven
{

/// One connection, mostly TCP, that moves exact numbers of bytes.
///
/// Short reads and writes and EINTR are handled here and nowhere else. A transfer that fails closes
/// the connection: what the peer has of it is unknown. A limit is a time without any byte, not one
/// for the whole transfer. Not thread-safe.
class CConnection
{
public:
    CConnection() = default;
    ~CConnection() { Close(); }
    CConnection(const CConnection&) = delete;
    CConnection& operator=(const CConnection&) = delete;

    /// Connects to an address or a host name, trying all its addresses in turn.
    /// \return false when none answered within tTimeout; GetError() says why.
    [[nodiscard]] bool Connect(const std::string& strHost, std::uint16_t usPort,
                               std::chrono::milliseconds tTimeout);
    /// Goes on with a stream socket that is connected already, and owns it.
    void Take(int iSocket);
    void Close();
    bool IsOpen() const { return m_iSocket != -1; }

    /// A descriptor that becomes readable when transfers shall end at once (a signal handler writes
    /// to its other end); -1: none. Borrowed.
    void SetInterruptFd(int iFd) { m_iInterruptFd = iFd; }
    bool WasInterrupted() const { return m_bInterrupted; }

    /// For the peer to take a byte of ours, and to send one more of a message that has begun;
    /// negative: none. What TCP sent and nobody acknowledged ends by the first one, too.
    void SetLimits(std::chrono::milliseconds tSend, std::chrono::milliseconds tRecv);

    /// Sends at most four blocks as one stream of bytes, in as few system calls as possible.
    [[nodiscard]] bool Send(std::initializer_list<std::span<const std::byte>> aBlocks);
    /// Waits until there is something to receive; a negative limit is none.
    [[nodiscard]] bool Await(std::chrono::milliseconds tLimit) { return mAwait(POLLIN, tLimit); }
    /// Receives exactly pData.size() bytes.
    [[nodiscard]] bool Recv(std::span<std::byte> pData);

    /// To wait for several connections at once: readable when Await() would return. -1: closed.
    int GetSocket() const { return m_iSocket; }
    const std::string& GetError() const { return m_strError; }

private:
    bool mTryAddress(const addrinfo& rAddress, std::chrono::steady_clock::time_point tDeadline);
    bool mIsInterrupted();
    bool mAwait(short sEvents, std::chrono::milliseconds tLimit);
    bool mWait(short sEvents, int iTimeoutMs);
    bool mFail(const std::string& strError);

    int m_iSocket = -1;
    int m_iInterruptFd = -1;
    bool m_bInterrupted = false;
    std::chrono::milliseconds m_tSend{-1}, m_tRecv{-1};
    std::string m_strError;
};

}  // namespace talven
