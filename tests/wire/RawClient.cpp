#include "tests/wire/RawClient.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>

CRawClient::CRawClient(int iPort, int iHost, int iTries)
{
    sockaddr_in aAddress = {};
    aAddress.sin_family = AF_INET;
    aAddress.sin_port = htons(static_cast<std::uint16_t>(iPort));
    aAddress.sin_addr.s_addr = inet_makeaddr(IN_LOOPBACKNET, static_cast<in_addr_t>(iHost)).s_addr;
    for (int i = 0; i < iTries; ++i)
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

void CRawClient::Close(bool bReset)
{
    const linger aLinger = {1, 0};
    if (bReset) setsockopt(m_iSocket, SOL_SOCKET, SO_LINGER, &aLinger, sizeof aLinger);
    if (m_iSocket != -1) close(m_iSocket);
    m_iSocket = -1;
}

void CRawClient::CutAfter(std::size_t tBytes, bool bReset)
{
    m_tLeft = tBytes;
    m_bCutResets = bReset;
    if (tBytes == 0) Close(bReset);
}

void CRawClient::mSwap(std::uint32_t* puiWords, std::size_t tWords) const
{
    for (std::size_t k = 0; m_bSwap && k < tWords; ++k)
        puiWords[k] = __builtin_bswap32(puiWords[k]);
}

bool CRawClient::mMove(bool bSends, void* pvData, std::size_t tBytes)
{
    for (char* pcNext = static_cast<char*>(pvData); tBytes > 0;)
    {
        if (!bSends && IsSilent(60)) return false;
        const std::size_t tMost = std::min(tBytes, m_tLeft);
        const long lDone = bSends ? send(m_iSocket, pcNext, tMost, MSG_NOSIGNAL)
                                  : recv(m_iSocket, pcNext, tMost, 0);
        if (lDone <= 0) return false;
        pcNext += lDone;
        tBytes -= static_cast<std::size_t>(lDone);
        m_tLeft -= static_cast<std::size_t>(lDone);
        if (m_tLeft == 0) Close(m_bCutResets);
    }
    return true;
}

bool CRawClient::SendBytes(const void* pvData, std::size_t tBytes)
{
    return mMove(true, const_cast<void*>(pvData), tBytes);
}

bool CRawClient::SendHeader(const Request& rRequest, std::uint32_t uiBytes)
{
    std::array<std::uint32_t, 16> auiHeader = {rRequest.uiType, ++m_uiSerial, 0, uiBytes};
    for (std::size_t n = 4; n < auiHeader.size(); ++n) auiHeader[n] = rRequest.Field(n);
    mSwap(auiHeader.data(), auiHeader.size());
    return SendBytes(auiHeader.data(), sizeof auiHeader);
}

bool CRawClient::Send(const Request& rRequest)
{
    Words vuiData = rRequest.vuiData;
    mSwap(vuiData.data(), vuiData.size());
    return SendHeader(rRequest, static_cast<std::uint32_t>(rRequest.GetBytes())) &&
           SendBytes(vuiData.data(), 4 * vuiData.size()) &&
           SendBytes(rRequest.strTail.data(), rRequest.strTail.size());
}

std::optional<Packet> CRawClient::Receive()
{
    Packet aPacket;
    if (!mMove(false, aPacket.auiFields.data(), sizeof aPacket.auiFields)) return std::nullopt;
    mSwap(aPacket.auiFields.data(), aPacket.auiFields.size());
    if (aPacket.Field(3) > (1u << 28)) return std::nullopt;
    aPacket.vuiData.resize(aPacket.Field(3) / 4);
    if (!mMove(false, aPacket.vuiData.data(), 4 * aPacket.vuiData.size())) return std::nullopt;
    mSwap(aPacket.vuiData.data(), aPacket.vuiData.size());
    return aPacket;
}

std::uint32_t CRawClient::Ask(const Request& rRequest)
{
    std::optional<Packet> aReply;
    if (Send(rRequest)) aReply = Receive();
    m_aReply = aReply.value_or(Packet{});
    return aReply && aReply->Field(4) == m_uiSerial ? aReply->Field(5) : 99;
}

bool CRawClient::IsSilent(double dSeconds)
{
    pollfd aPoll = {m_iSocket, POLLIN, 0};  // poll waits in vain for a closed one
    return m_iSocket == -1 || poll(&aPoll, 1, static_cast<int>(1000 * dSeconds)) != 1;
}

bool CRawClient::IsClosedByPeer()
{
    char acDropped[4096];
    while (!IsSilent(60))
        if (recv(m_iSocket, acDropped, sizeof acDropped, 0) <= 0) return true;
    return false;
}
