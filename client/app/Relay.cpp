#include "Relay.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <iterator>
#include <vector>

namespace talven
{
namespace
{

constexpr std::size_t g_tBuffer = std::size_t(1) << 18;

/// Bytes on their way from one descriptor to another.
class CPump
{
public:
    CPump(int iFrom, int iTo) : m_iFrom(iFrom), m_iTo(iTo), m_vcBytes(g_tBuffer) {}
    /// What it waits for, now: more bytes, or room for those that it has.
    pollfd GetWait() const
    {
        return mIsEmpty() ? pollfd{m_iFrom, POLLIN, 0} : pollfd{m_iTo, POLLOUT, 0};
    }
    /// Moves what goes without waiting. \return false: one end is closed
    bool Move();
    bool HasMoved() const { return m_tEnd > 0; }

private:
    bool mIsEmpty() const { return m_tFirst == m_tEnd; }

    int m_iFrom, m_iTo;
    std::vector<char> m_vcBytes;
    std::size_t m_tFirst = 0, m_tEnd = 0;  // of the bytes that wait
};

bool IsNotYet()
{
    return errno == EAGAIN || errno == EINTR;
}

bool CPump::Move()
{
    if (mIsEmpty())
    {
        const ssize_t iGot = read(m_iFrom, m_vcBytes.data(), m_vcBytes.size());
        if (iGot <= 0) return iGot < 0 && IsNotYet();
        m_tFirst = 0;
        m_tEnd = static_cast<std::size_t>(iGot);
    }
    const ssize_t iSent = write(m_iTo, m_vcBytes.data() + m_tFirst, m_tEnd - m_tFirst);
    if (iSent < 0) return IsNotYet();
    m_tFirst += static_cast<std::size_t>(iSent);
    return true;
}

}  // namespace

bool Relay(int iIn, int iOut, int iServer, int iStop)
{
    for (const int iFd : {iIn, iOut, iServer})
        fcntl(iFd, F_SETFL, fcntl(iFd, F_GETFL) | O_NONBLOCK);
    CPump aUp(iIn, iServer), aDown(iServer, iOut);
    bool bOpen = true;
    while (bOpen)
    {
        pollfd aPolls[] = {aUp.GetWait(), aDown.GetWait(), {iStop, POLLIN, 0}};
        if (poll(aPolls, std::size(aPolls), -1) < 0)
        {
            bOpen = errno == EINTR;
            continue;
        }
        const auto IsReady = [&](int i) { return aPolls[i].revents != 0; };
        bOpen = !IsReady(2) && (!IsReady(0) || aUp.Move()) && (!IsReady(1) || aDown.Move());
    }
    return aDown.HasMoved();
}

}  // namespace talven
