#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <span>
#include <thread>

/// The client's end of a socket pair whose other end Util_TcpServer serves: a thread that sends
/// given bytes, closes its direction, and reads until the server hangs up or it has got enough.
class CPeer
{
public:
    /// Gets all that the server sends, piece by piece, on the thread of the peer.
    using Sink = std::function<void(std::span<const std::byte>)>;

    CPeer();
    ~CPeer();
    CPeer(const CPeer&) = delete;
    CPeer& operator=(const CPeer&) = delete;

    /// Becomes the client of the server. aBytes are borrowed until Finish().
    /// \param tEnough  bytes from the server after which it hangs up, when it has sent all
    void Connect(std::span<const std::byte> aBytes, Sink fnSink, std::size_t tEnough = SIZE_MAX);
    /// Waits until the server has hung up and the sink has got the last byte.
    void Finish();

private:
    void mRun();
    void mTalk();
    bool mSend();  // false: nothing more to send
    bool mRecv();  // false: the server has hung up

    std::mutex m_aMutex;  // guards m_bBusy and m_bStop
    std::condition_variable m_aCond;
    bool m_bBusy = false;
    bool m_bStop = false;
    int m_iSocket = -1;  // these five belong to the thread while m_bBusy is set
    std::span<const std::byte> m_aBytes;
    Sink m_fnSink;
    std::size_t m_tEnough = 0;
    std::size_t m_tGot = 0;
    std::thread m_aThread;  // last: it uses all of the above
};
