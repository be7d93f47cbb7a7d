#include "server/Data/RemotePacket.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "Util/Util_TcpServer.h"
#include "server/Data/ByteOrder.h"

namespace
{
/// Reads and forgets.
bool DropBytes(std::size_t tBytes)
{
    std::array<std::byte, 65536> aBuffer;
    while (tBytes > 0)
    {
        const std::size_t tStep = std::min(tBytes, aBuffer.size());
        if (!Util_TcpServer::GetInstance()->DoRecv(aBuffer.data(), tStep)) return false;
        tBytes -= tStep;
    }
    return true;
}
}  // namespace

bool CRemotePacket::RecvFromClient(DataCeiling pfnCeiling)
{
    (void)m_aData.Reserve(0);
    if (!Util_TcpServer::GetInstance()->DoRecv(m_aHdr.GetBytes(), CRemoteHdr::GetNumBytes()))
        return false;
    CByteOrder::GetInstance()->SwapFour(m_aHdr.GetBytes(), CRemoteHdr::GetNumBytes());
    return GetOptSize() == 0 || mRecvData(GetOptSize(), pfnCeiling(*this));
}

bool CRemotePacket::mRecvData(std::uint32_t uiBytes, std::uint32_t uiCeiling)
{
    if (uiBytes > uiCeiling || !m_aData.Reserve(uiBytes)) return DropBytes(uiBytes);
    return Util_TcpServer::GetInstance()->DoRecv(m_aData.GetOwnData(), uiBytes);
}

bool CRemotePacket::SendToClient()
{
    if (GetMsgType() == CMsgConst::INVALID) return false;
    if (GetMsgType() == CMsgConst::NORESPONSE) return true;
    CByteOrder::GetInstance()->SwapFour(m_aHdr.GetBytes(), CRemoteHdr::GetNumBytes());
    return Util_TcpServer::GetInstance()->DoSend(m_aHdr.GetBytes(), CRemoteHdr::GetNumBytes(),
                                                 m_aData.GetData(), m_aData.GetOptSize());
}

std::uint32_t CRemotePacket::mClip(std::uint32_t uiOffset, std::uint32_t uiBytes) const
{
    return uiOffset >= GetDataBytes() ? 0 : std::min(uiBytes, GetDataBytes() - uiOffset);
}

std::vector<std::byte> CRemotePacket::GetData1(std::uint32_t uiOffset, std::uint32_t uiBytes) const
{
    const std::uint32_t uiCopied = mClip(uiOffset, uiBytes);
    if (uiCopied == 0) return {};
    const std::byte* pData = m_aData.GetData() + uiOffset;
    return std::vector<std::byte>(pData, pData + uiCopied);
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

bool CRemotePacket::mCopyData4(std::uint32_t uiOffset, void* pvDest, std::size_t tBytes) const
{
    if (tBytes == 0) return true;
    if (uiOffset > GetDataBytes() || tBytes > GetDataBytes() - uiOffset) return false;
    std::memcpy(pvDest, m_aData.GetData() + uiOffset, tBytes);
    CByteOrder::GetInstance()->SwapFour(pvDest, tBytes);
    return true;
}

bool CRemotePacket::SetOptSize(std::uint32_t uiBytes)
{
    const bool bDone = m_aData.SetOptSize(uiBytes);
    m_aHdr.SetNthField(3, m_aData.GetOptSize());
    return bDone;
}

void CRemotePacket::ClearData()
{
    (void)m_aData.Reserve(0);
    m_aHdr.SetNthField(3, 0);
}

void CRemotePacket::SetData1(std::uint32_t uiOffset, const void* pvSource, std::uint32_t uiBytes)
{
    const std::uint32_t uiCopied = mClip(uiOffset, uiBytes);
    if (uiCopied > 0 && m_aData.GetOwnData() != nullptr)
        std::memcpy(m_aData.GetOwnData() + uiOffset, pvSource, uiCopied);
}

void CRemotePacket::SetData2(std::uint32_t uiOffset, const void* pvSource, std::uint32_t uiBytes)
{
    SetData1(uiOffset, pvSource, uiBytes);
    const std::uint32_t uiCopied = mClip(uiOffset, uiBytes);
    if (uiCopied > 0 && m_aData.GetOwnData() != nullptr)
        CByteOrder::GetInstance()->SwapTwo(m_aData.GetOwnData() + uiOffset, uiCopied);
}

void CRemotePacket::SetData4(std::uint32_t uiOffset, const void* pvSource, std::uint32_t uiBytes)
{
    SetData1(uiOffset, pvSource, uiBytes);
    const std::uint32_t uiCopied = mClip(uiOffset, uiBytes);
    if (uiCopied > 0 && m_aData.GetOwnData() != nullptr)
        CByteOrder::GetInstance()->SwapFour(m_aData.GetOwnData() + uiOffset, uiCopied);
}

bool CRemotePacket::SetWholeData4(const void* pvSource, std::uint32_t uiBytes)
{
    if (!CByteOrder::GetInstance()->NeedsSwap())
    {
        m_aData.Borrow(pvSource, uiBytes);
        m_aHdr.SetNthField(3, uiBytes);
        return true;
    }
    const bool bDone = m_aData.Reserve(uiBytes);
    m_aHdr.SetNthField(3, m_aData.GetOptSize());
    if (bDone) SetData4(0, pvSource, uiBytes);
    return bDone;
}
