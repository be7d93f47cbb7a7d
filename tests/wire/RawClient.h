#pragma once

#include <array>
#include <limits>
#include <optional>

#include "tests/wire/Request.h"

/// A reply, in our byte order.
struct Packet
{
    std::array<std::uint32_t, 16> auiFields{};
    Words vuiData;

    std::uint32_t Field(int n) const { return auiFields[static_cast<std::size_t>(n)]; }
};

/// A client that says what a test wants, right or wrong. Every read has a deadline.
class CRawClient
{
public:
    /// Connects to 127.0.0.iHost, trying for 10 s at most.
    explicit CRawClient(int iPort, int iHost = 1, int iTries = 500);
    /// Takes over a socket that is connected.
    struct Socket
    {
        int iSocket;
    };
    explicit CRawClient(Socket aSocket) : m_iSocket(aSocket.iSocket) {}
    ~CRawClient() { Close(); }
    CRawClient(const CRawClient&) = delete;
    CRawClient& operator=(const CRawClient&) = delete;

    bool IsConnected() const { return m_iSocket != -1; }
    void SetSwap(bool bSwap) { m_bSwap = bSwap; }  ///< of what follows, both ways
    void Close(bool bReset = false);
    /// Closes or resets the connection as soon as tBytes more have been sent and received together.
    void CutAfter(std::size_t tBytes, bool bReset);
    bool IsCut() const { return m_tLeft == 0; }

    bool Send(const Request& rRequest);
    /// The header alone, which claims any size; the data is the test's business.
    bool SendHeader(const Request& rRequest, std::uint32_t uiBytes);
    bool SendBytes(const void* pvData, std::size_t tBytes);
    /// The next packet, nothing when the peer closed or 60 s passed.
    std::optional<Packet> Receive();
    /// Sends and receives. \return word 5 of the reply, or 99 when none answers the request
    std::uint32_t Ask(const Request& rRequest);
    const Packet& GetReply() const { return m_aReply; }  ///< to the last Ask()
    /// True when nothing arrives for so long.
    bool IsSilent(double dSeconds);
    bool IsClosedByPeer();  ///< within 60 s
    std::uint32_t GetLastSerial() const { return m_uiSerial; }

private:
    bool mMove(bool bSends, void* pvData, std::size_t tBytes);
    void mSwap(std::uint32_t* puiWords, std::size_t tWords) const;

    int m_iSocket = -1;
    bool m_bSwap = false, m_bCutResets = false;
    std::size_t m_tLeft = std::numeric_limits<std::size_t>::max();  // bytes until the cut
    std::uint32_t m_uiSerial = 100;
    Packet m_aReply;
};
