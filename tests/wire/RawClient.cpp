#include "tests/wire/RawClient.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <cstring>
#include <thread>

namespace
{
constexpr int g_iDeadlineMs = 20000;

bool WaitReadable(int iSocket, int iMs)
{
    pollfd aPoll = {iSocket, POLLIN, 0};  // poll waits in vain for a closed one
    return iSocket != -1 && poll(&aPoll, 1, iMs) == 1;
}
}  // namespace

std::uint32_t Bits(float fValue)
{
    return std::bit_cast<std::uint32_t>(fValue);
}

std::vector<float> Packet::Floats() const
{
    std::vector<float> vfValues(vuiData.size());
    for (std::size_t i = 0; i < vfValues.size(); ++i)
        vfValues[i] = std::bit_cast<float>(vuiData[i]);
    return vfValues;
}

CRawClient::CRawClient(int iPort, bool bSwap) : m_bSwap(bSwap)
{
    sockaddr_in aAddress = {};
    aAddress.sin_family = AF_INET;
    aAddress.sin_port = htons(static_cast<std::uint16_t>(iPort));
    aAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    for (int i = 0; i < 500; ++i)
    {
        m_iSocket = socket(AF_INET, SOCK_STREAM, 0);
        const int iOn = 1;  // a header and its data go at once
        setsockopt(m_iSocket, IPPROTO_TCP, TCP_NODELAY, &iOn, sizeof iOn);
        if (connect(m_iSocket, reinterpret_cast<sockaddr*>(&aAddress), sizeof aAddress) == 0)
            return;
        Close();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

void CRawClient::Close()
{
    if (m_iSocket != -1) close(m_iSocket);
    m_iSocket = -1;
}

void CRawClient::Reset()
{
    const linger aLinger = {1, 0};
    setsockopt(m_iSocket, SOL_SOCKET, SO_LINGER, &aLinger, sizeof aLinger);
    Close();
}

void CRawClient::CutAfter(std::size_t tBytes, bool bReset)
{
    m_tLeft = tBytes;
    m_bCutResets = bReset;
    mCount(0);
}

void CRawClient::mCount(std::size_t tBytes)
{
    m_tLeft -= tBytes;
    if (m_tLeft > 0) return;
    if (m_bCutResets) Reset();
    Close();
}

std::uint32_t CRawClient::mOrder(std::uint32_t uiValue) const
{
    return m_bSwap ? __builtin_bswap32(uiValue) : uiValue;
}

CRawClient::Words CRawClient::ToWords(const std::vector<float>& vfValues)
{
    Words vuiWords(vfValues.size());
    for (std::size_t i = 0; i < vuiWords.size(); ++i) vuiWords[i] = Bits(vfValues[i]);
    return vuiWords;
}

bool CRawClient::SendBytes(const void* pvData, std::size_t tBytes)
{
    const char* pcNext = static_cast<const char*>(pvData);
    while (tBytes > 0)
    {
        const ssize_t tDone = send(m_iSocket, pcNext, std::min(tBytes, m_tLeft), MSG_NOSIGNAL);
        if (tDone <= 0) return false;
        mCount(static_cast<std::size_t>(tDone));
        pcNext += tDone;
        tBytes -= static_cast<std::size_t>(tDone);
    }
    return true;
}

bool CRawClient::SendHeader(std::uint32_t uiType, const Words& vuiFields, std::uint32_t uiOptSize)
{
    std::array<std::uint32_t, 16> auiHeader{};
    auiHeader[0] = uiType;
    auiHeader[1] = ++m_uiSerial;
    auiHeader[3] = uiOptSize;
    for (std::size_t i = 0; i < vuiFields.size() && i < 12; ++i) auiHeader[4 + i] = vuiFields[i];
    for (std::uint32_t& rField : auiHeader) rField = mOrder(rField);
    return SendBytes(auiHeader.data(), sizeof auiHeader);
}

bool CRawClient::Send(std::uint32_t uiType, const Words& vuiFields, const Words& vuiData,
                      const std::string& strTail)
{
    Words vuiWire(vuiData);
    for (std::uint32_t& rWord : vuiWire) rWord = mOrder(rWord);
    const std::size_t tBytes = 4 * vuiWire.size();
    return SendHeader(uiType, vuiFields, static_cast<std::uint32_t>(tBytes + strTail.size())) &&
           SendBytes(vuiWire.data(), tBytes) && SendBytes(strTail.data(), strTail.size());
}

bool CRawClient::mReceiveAll(void* pvData, std::size_t tBytes)
{
    char* pcNext = static_cast<char*>(pvData);
    while (tBytes > 0)
    {
        if (!WaitReadable(m_iSocket, g_iDeadlineMs)) return false;
        const ssize_t tDone = recv(m_iSocket, pcNext, std::min(tBytes, m_tLeft), 0);
        if (tDone <= 0) return false;
        mCount(static_cast<std::size_t>(tDone));
        pcNext += tDone;
        tBytes -= static_cast<std::size_t>(tDone);
    }
    return true;
}

std::optional<Packet> CRawClient::Receive()
{
    Packet aPacket;
    if (!mReceiveAll(aPacket.auiFields.data(), sizeof aPacket.auiFields)) return std::nullopt;
    for (std::uint32_t& rField : aPacket.auiFields) rField = mOrder(rField);
    if (aPacket.OptSize() > (1u << 28)) return std::nullopt;
    aPacket.vuiData.resize(aPacket.OptSize() / 4);
    if (!mReceiveAll(aPacket.vuiData.data(), 4 * aPacket.vuiData.size())) return std::nullopt;
    for (std::uint32_t& rWord : aPacket.vuiData) rWord = mOrder(rWord);
    return aPacket;
}

std::optional<Packet> CRawClient::Ask(std::uint32_t uiType, const Words& vuiFields,
                                      const Words& vuiData)
{
    if (!Send(uiType, vuiFields, vuiData)) return std::nullopt;
    std::optional<Packet> aReply = Receive();
    if (aReply && aReply->Parent() != m_uiSerial) return std::nullopt;
    return aReply;
}

bool CRawClient::IsSilent(double dSeconds)
{
    return !WaitReadable(m_iSocket, static_cast<int>(1000 * dSeconds));
}

bool CRawClient::IsClosedByPeer()
{
    char acDropped[4096];
    while (WaitReadable(m_iSocket, g_iDeadlineMs))
        if (recv(m_iSocket, acDropped, sizeof acDropped, 0) <= 0) return true;
    return false;
}
