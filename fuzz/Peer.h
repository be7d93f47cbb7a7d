#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <span>
#include <thread>

/// The client's end of a socket pair whose other end Util_TcpServer serves: a thread that sends
/// given bytes, closes its direction, and reads until the server hangs up; or, in a hurry, hangs up
/// itself when it has sent all.
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
    void Connect(std::span<const std::byte> aBytes, Sink fnSink, bool bInHurry = false);
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
    int m_iSocket = -1;  // these four belong to the thread while m_bBusy is set
    std::span<const std::byte> m_aBytes;
    Sink m_fnSink;
    bool m_bInHurry = false;
    std::thread m_aThread;  // last: it uses all of the above
};
