#include "server/Data/RemotePacket.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

#include "Util/Util_TcpServer.h"
#include "server/Data/ByteOrder.h"
#include "server/Data/RequestPlan.h"

bool CRemotePacket::RecvHeader()
{
    ClearData();
    m_bLostData = false;
    if (!Util_TcpServer::GetInstance()->DoRecv(m_aRemoteHdr.GetBytes(), CRemoteHdr::GetNumBytes()))
        return false;
    CByteOrder::GetInstance()->SwapFour(m_aRemoteHdr.GetBytes(), CRemoteHdr::GetNumBytes());
    return true;
}

bool CRemotePacket::RecvData(std::uint32_t uiCeiling)
{
    const std::uint32_t uiBytes = GetOptSize();
    std::uint32_t uiKept = std::min(uiBytes, uiCeiling);
    if (!m_aRemoteData.Allocate(uiKept))
    {
        m_bLostData = true;
        uiKept = 0;
    }
    return Util_TcpServer::GetInstance()->DoRecv(m_aRemoteData.GetData(), uiKept) &&
           mDrop(uiBytes - uiKept);
}

bool CRemotePacket::RecvData(const CRequestPlan& rPlan)
{
    const auto [aFirst, aSecond] = rPlan.GetTarget();
    if (aFirst.empty() && aSecond.empty()) return RecvData(rPlan.GetKept());
    for (const std::span<std::byte> aPart : {aFirst, aSecond})
    {
        if (!Util_TcpServer::GetInstance()->DoRecv(aPart.data(), aPart.size())) return false;
        CByteOrder::GetInstance()->SwapFour(aPart.data(), aPart.size());
    }
    return mDrop(GetOptSize() - aFirst.size() - aSecond.size());
}

bool CRemotePacket::mDrop(std::size_t tBytes)
{
    std::array<std::byte, 65536> aScratch;
    while (tBytes > 0)
    {
        const std::size_t tStep = std::min(tBytes, aScratch.size());
        if (!Util_TcpServer::GetInstance()->DoRecv(aScratch.data(), tStep)) return false;
        tBytes -= tStep;
    }
    return true;
}

bool CRemotePacket::SendToClient()
{
    if (GetMsgType() == CMsgConst::INVALID) return false;
    if (GetMsgType() == CMsgConst::NORESPONSE) return true;
    CByteOrder::GetInstance()->SwapFour(m_aRemoteHdr.GetBytes(), CRemoteHdr::GetNumBytes());
    const void* pvData = m_aLent.empty() ? static_cast<const void*>(m_aRemoteData.GetData())
                                         : static_cast<const void*>(m_aLent.data());
    const std::size_t tBytes = m_aLent.empty() ? GetDataBytes() : m_aLent.size_bytes();
    const bool bSent = Util_TcpServer::GetInstance()->DoSend(
        m_aRemoteHdr.GetBytes(), CRemoteHdr::GetNumBytes(), pvData, tBytes);
    m_aLent = {};
    return bSent;
}

bool CRemotePacket::SetOptSize(std::uint32_t uiBytes)
{
    m_aLent = {};
    const bool bDone = m_aRemoteData.SetOptSize(uiBytes);
    m_aRemoteHdr.SetNthField(3, bDone ? uiBytes : 0);
    return bDone;
}

void CRemotePacket::ClearData()
{
    m_aLent = {};
    m_aRemoteHdr.SetNthField(3, 0);
    static_cast<void>(m_aRemoteData.Allocate(0));  // never fails
}

bool CRemotePacket::mInside(std::uint32_t uiOffset, std::size_t tBytes) const
{
    return uiOffset <= GetDataBytes() && tBytes <= GetDataBytes() - uiOffset;
}

std::vector<std::byte> CRemotePacket::GetData1(std::uint32_t uiOffset, std::uint32_t uiBytes) const
{
    if (!mInside(uiOffset, uiBytes) || uiBytes == 0) return {};
    const std::byte* pFirst = m_aRemoteData.GetData() + uiOffset;
    return {pFirst, pFirst + uiBytes};
}

std::vector<std::byte> CRemotePacket::GetData2(std::uint32_t uiOffset, std::uint32_t uiBytes) const
{
    std::vector<std::byte> vData = GetData1(uiOffset, uiBytes);
    CByteOrder::GetInstance()->SwapTwo(vData.data(), vData.size());
    return vData;
}

std::vector<std::byte> CRemotePacket::GetData4(std::uint32_t uiOffset, std::uint32_t uiBytes) const
{
    std::vector<std::byte> vData = GetData1(uiOffset, uiBytes);
    CByteOrder::GetInstance()->SwapFour(vData.data(), vData.size());
    return vData;
}

bool CRemotePacket::mCopy4(std::uint32_t uiOffset, void* pvDest, std::size_t tBytes) const
{
    if (!mInside(uiOffset, tBytes)) return false;
    if (tBytes == 0) return true;
    std::memcpy(pvDest, m_aRemoteData.GetData() + uiOffset, tBytes);
    CByteOrder::GetInstance()->SwapFour(pvDest, tBytes);
    return true;
}

bool CRemotePacket::SetData1(std::uint32_t uiOffset, const void* pvSource, std::uint32_t uiBytes)
{
    if (!mInside(uiOffset, uiBytes)) return false;
    if (uiBytes > 0) std::memcpy(m_aRemoteData.GetData() + uiOffset, pvSource, uiBytes);
    return true;
}

bool CRemotePacket::SetData2(std::uint32_t uiOffset, const void* pvSource, std::uint32_t uiBytes)
{
    if (!SetData1(uiOffset, pvSource, uiBytes)) return false;
    if (uiBytes > 0)
        CByteOrder::GetInstance()->SwapTwo(m_aRemoteData.GetData() + uiOffset, uiBytes);
    return true;
}

bool CRemotePacket::SetData4(std::uint32_t uiOffset, const void* pvSource, std::uint32_t uiBytes)
{
    if (!SetData1(uiOffset, pvSource, uiBytes)) return false;
    if (uiBytes > 0)
        CByteOrder::GetInstance()->SwapFour(m_aRemoteData.GetData() + uiOffset, uiBytes);
    return true;
}

bool CRemotePacket::LendData4(std::span<const float> aSource)
{
    ClearData();
    if (aSource.size_bytes() > std::numeric_limits<std::uint32_t>::max()) return false;
    const auto uiBytes = static_cast<std::uint32_t>(aSource.size_bytes());
    if (!CByteOrder::GetInstance()->NeedsSwap())
    {
        m_aLent = aSource;
        m_aRemoteHdr.SetNthField(3, uiBytes);
        return true;
    }
    if (!m_aRemoteData.Allocate(uiBytes)) return false;
    m_aRemoteHdr.SetNthField(3, uiBytes);
    return SetData4(0, aSource.data(), uiBytes);
}
