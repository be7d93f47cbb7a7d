#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

/// A packet as bytes on the wire see it, in host order here.
struct Packet
{
    std::array<std::uint32_t, 16> auiFields{};
    std::vector<std::uint32_t> vuiData;  ///< 4-byte words

    std::uint32_t Type() const { return auiFields[0]; }
    std::uint32_t Serial() const { return auiFields[1]; }
    std::uint32_t OptSize() const { return auiFields[3]; }
    std::uint32_t Parent() const { return auiFields[4]; }
    std::uint32_t Field(int i) const { return auiFields[static_cast<std::size_t>(i)]; }
    std::vector<float> Floats() const;
};

/// A client that says what a test wants, right or wrong. Every read has a deadline.
class CRawClient
{
public:
    /// Connects, trying for 10 s; bSwap: the client has the other byte order.
    explicit CRawClient(int iPort, bool bSwap = false);
    /// On a socket that is connected already; owns it.
    struct Socket
    {
        int iSocket;
    };
    explicit CRawClient(Socket aSocket) : m_iSocket(aSocket.iSocket) {}
    ~CRawClient() { Close(); }
    CRawClient(const CRawClient&) = delete;
    CRawClient& operator=(const CRawClient&) = delete;

    void SetSwap(bool bSwap) { m_bSwap = bSwap; }  ///< of what follows, both ways
    bool IsConnected() const { return m_iSocket != -1; }
    void Close();
    void Reset();  ///< closes with a connection reset
    /// Closes or resets the connection as soon as tBytes more have been sent and received together.
    void CutAfter(std::size_t tBytes, bool bReset);
    bool IsCut() const { return m_tLeft == 0; }

    /// Field values from field 4 on; data words follow.
    using Words = std::vector<std::uint32_t>;
    bool Send(std::uint32_t uiType, const Words& vuiFields = {}, const Words& vuiData = {},
              const std::string& strTail = {});
    /// Header with any option size; the data is the test's business.
    bool SendHeader(std::uint32_t uiType, const Words& vuiFields, std::uint32_t uiOptSize);
    bool SendBytes(const void* pvData, std::size_t tBytes);
    /// The next packet, nothing when the peer closed or 20 s passed.
    std::optional<Packet> Receive();
    /// Send and receive; the reply must answer this request.
    std::optional<Packet> Ask(std::uint32_t uiType, const Words& vuiFields = {},
                              const Words& vuiData = {});
    /// True when nothing arrives for fSeconds.
    bool IsSilent(double dSeconds);
    bool IsClosedByPeer();  ///< within 20 s

    std::uint32_t GetLastSerial() const { return m_uiSerial; }
    static Words ToWords(const std::vector<float>& vfValues);

private:
    bool mReceiveAll(void* pvData, std::size_t tBytes);
    void mCount(std::size_t tBytes);
    std::uint32_t mOrder(std::uint32_t uiValue) const;
    int m_iSocket = -1;
    bool m_bSwap = false;
    std::size_t m_tLeft = std::numeric_limits<std::size_t>::max();  // bytes until the cut
    bool m_bCutResets = false;
    std::uint32_t m_uiSerial = 100;
};

/// Bits of a float as a header field carries them.
std::uint32_t Bits(float fValue);
