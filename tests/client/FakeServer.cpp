#include "FakeServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <numeric>

#include "Images.h"

namespace talven::test
{
namespace
{

template <class T>
std::vector<T> Reinterpret(std::span<const std::byte> pData)
{
    std::vector<T> vtAll(pData.size() / sizeof(T));
    if (!vtAll.empty()) std::memcpy(vtAll.data(), pData.data(), vtAll.size() * sizeof(T));
    return vtAll;
}

bool RecvAll(int iSocket, std::span<std::byte> pData)
{
    return pData.empty() || recv(iSocket, pData.data(), pData.size(), MSG_WAITALL) ==
                                static_cast<ssize_t>(pData.size());
}

bool SendAll(int iSocket, std::span<const std::byte> pData)
{
    while (!pData.empty())
    {
        const ssize_t iSent = send(iSocket, pData.data(), pData.size(), MSG_NOSIGNAL);
        if (iSent <= 0) return false;
        pData = pData.subspan(static_cast<std::size_t>(iSent));
    }
    return true;
}

}  // namespace

std::vector<std::uint32_t> Message::GetWords() const
{
    return Reinterpret<std::uint32_t>(vcData);
}

std::vector<float> Message::GetFloats() const
{
    return Reinterpret<float>(vcData);
}

CFakeServer::CFakeServer(Faults aFaults) : m_aFaults(std::move(aFaults))
{
    m_iListening = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in aAddress{};
    aAddress.sin_family = AF_INET;
    aAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t iBytes = sizeof(aAddress);
    if (bind(m_iListening, reinterpret_cast<const sockaddr*>(&aAddress), iBytes) == 0 &&
        listen(m_iListening, 1) == 0 &&
        getsockname(m_iListening, reinterpret_cast<sockaddr*>(&aAddress), &iBytes) == 0)
        m_usPort = ntohs(aAddress.sin_port);
    m_aThread = std::thread([this] { mServe(); });
}

CFakeServer::~CFakeServer()
{
    shutdown(m_iListening, SHUT_RDWR);
    if (const int iClient = m_iClient; iClient != -1) shutdown(iClient, SHUT_RDWR);
    mJoin();
    close(m_iListening);
}

void CFakeServer::mJoin()
{
    if (!m_aThread.joinable()) return;
    m_aThread.join();
    if (m_iClient != -1) close(m_iClient);
    m_iClient = -1;
}

std::vector<Message> CFakeServer::WaitForMessages()
{
    mJoin();
    return m_aMessages;
}

void CFakeServer::mServe()
{
    const int iClient = accept4(m_iListening, nullptr, nullptr, SOCK_CLOEXEC);
    if (iClient == -1) return;
    const int iOn = 1;  // header and data are two writes
    setsockopt(iClient, IPPROTO_TCP, TCP_NODELAY, &iOn, sizeof(iOn));
    m_iClient = iClient;
    while (true)
    {
        Message aMessage;
        if (!RecvAll(iClient, std::as_writable_bytes(std::span(aMessage.aHeader.auiFields)))) break;
        aMessage.vcData.resize(aMessage.aHeader.GetDataBytes());
        if (!RecvAll(iClient, aMessage.vcData)) break;
        m_aMessages.push_back(aMessage);
        if (!mAnswer(aMessage)) break;
    }
    shutdown(iClient, SHUT_RDWR);
}

bool CFakeServer::mAnswer(const Message& rMessage)
{
    const EMsg eType = rMessage.aHeader.GetType();
    const auto& aF = rMessage.aHeader.auiFields;
    if (eType == m_aFaults.eHangUpAt || eType == EMsg::QUIT) return false;
    if (m_aFaults.aRefused.contains(eType))
    {
        if (eType == EMsg::COMPARE || eType == EMsg::COMPAREL) return mReplySums(rMessage, 1, {});
        const bool bData = eType == EMsg::VOLGET || eType == EMsg::PROJGET ||
                           eType == EMsg::RECONSTATGET || eType == EMsg::SERVERPROP;
        return mReply(bData ? EMsg::DATAREPLY : EMsg::CMDREPLY, rMessage, 1, {});
    }
    switch (eType)
    {
    case EMsg::BYTEORDER:
        return true;
    case EMsg::PROJSIZE:
        std::copy_n(&aF[4], 3, m_auiStack);
        break;
    case EMsg::VOLSIZE:
        std::copy_n(&aF[4], 3, m_auiVolume);
        break;
    case EMsg::PROJSET:
        m_aProjs[aF[4]].assign(rMessage.vcData.begin() + 8 * std::ptrdiff_t(m_auiStack[1]),
                               rMessage.vcData.end());
        break;
    case EMsg::MPROJSIZE:
        std::copy_n(&aF[4], 3, m_auiMeasured);
        break;
    case EMsg::MPROJSET:
        m_aMeasured[aF[4]] = rMessage.vcData;
        break;
    case EMsg::TRANSFORM:
    case EMsg::TRANSFORML:
    case EMsg::COMPARE:
    case EMsg::COMPAREL:
    {
        const bool bCompare = eType == EMsg::COMPARE || eType == EMsg::COMPAREL;
        std::vector<float> vfNumbers;  // matrix and scale
        for (int i = bCompare ? 8 : 6; i < 16; ++i)
            vfNumbers.push_back(std::bit_cast<float>(aF[std::size_t(i)]));
        if (eType == EMsg::TRANSFORM) vfNumbers.pop_back();
        const std::vector<float> vfMore = rMessage.GetFloats();
        vfNumbers.insert(vfNumbers.end(), vfMore.begin(), vfMore.end());
        const Image aMeasured = {int(m_auiMeasured[0]), int(m_auiMeasured[1]),
                                 Reinterpret<float>(m_aMeasured[aF[4]])};
        const Image aMapped =
            MapImage(aMeasured, int(m_auiStack[0]), int(m_auiStack[1]), vfNumbers);
        if (bCompare)
            return mReplySums(rMessage, 0,
                              SumImages(Reinterpret<float>(m_aProjs[aF[5]]), aMapped.vfPixels));
        const auto pBytes = std::as_bytes(std::span(aMapped.vfPixels));
        m_aProjs[aF[5]].assign(pBytes.begin(), pBytes.end());
        break;
    }
    case EMsg::PROJGET:
        return mReply(EMsg::DATAREPLY, rMessage, 0, m_aProjs[aF[4]]);
    case EMsg::VOLGET:
    {
        std::vector<float> vfSlice(m_auiVolume[0] * m_auiVolume[1]);
        std::iota(vfSlice.begin(), vfSlice.end(), 1000.0f * static_cast<float>(aF[4]));
        return mReply(EMsg::DATAREPLY, rMessage, 0, std::as_bytes(std::span(vfSlice)));
    }
    case EMsg::RECONSTATGET:
    {
        std::vector<float> vfSums;
        for (std::uint32_t i = 0; i < m_auiStack[2]; ++i)
            vfSums.insert(vfSums.end(), {10.0f, 10.0f / static_cast<float>(aF[4] + 1)});
        return mReply(EMsg::DATAREPLY, rMessage, 0, std::as_bytes(std::span(vfSums)));
    }
    case EMsg::SERVERPROP:
        return mReply(EMsg::DATAREPLY, rMessage, 0, {}, 1904u << 20);
    default:
        break;
    }
    return mReply(EMsg::CMDREPLY, rMessage, 0, {});
}

bool CFakeServer::mReply(EMsg eType, const Message& rRequest, std::uint32_t uiStatus,
                         std::span<const std::byte> pData, std::uint32_t uiField6)
{
    const EMsg eRequest = rRequest.aHeader.GetType();
    if (eRequest == m_aFaults.eSkipSerialAt) ++m_uiSerial;
    PacketHeader aReply;
    aReply.auiFields = {
        static_cast<std::uint32_t>(eType),
        m_uiSerial++,
        0,
        static_cast<std::uint32_t>(pData.size()),
        rRequest.aHeader.GetSerial() + (eRequest == m_aFaults.eWrongParentAt ? 1 : 0),
        uiStatus,
        uiField6,
        1};
    return SendAll(m_iClient, std::as_bytes(std::span(aReply.auiFields))) &&
           SendAll(m_iClient, pData);
}

bool CFakeServer::mReplySums(const Message& rRequest, std::uint32_t uiStatus,
                             const CompareSums& rSums)
{
    PacketHeader aReply;
    aReply.auiFields = {static_cast<std::uint32_t>(EMsg::COMPREPLY),
                        m_uiSerial++,
                        0,
                        0,
                        rRequest.aHeader.GetSerial(),
                        uiStatus,
                        7};
    int iField = 7;
    for (const float fSum :
         {rSums.fAligned, rSums.fTransed, rSums.fAlignedSqr, rSums.fTransedSqr, rSums.fCross,
          rSums.fAlignedAbs, rSums.fTransedAbs, rSums.fDiff, rSums.fCount})
        aReply.SetFloat(iField++, fSum);
    return SendAll(m_iClient, std::as_bytes(std::span(aReply.auiFields)));
}

}  // namespace talven::test
