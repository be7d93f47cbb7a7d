#include "server/Data/RspUtil.h"

#include <span>
#include <string>

#include "Util/Util_Volume.h"
#include "server/Data/Recon/VolData.h"
#include "server/Data/ReplyData.h"

namespace
{
/// Copies the data into the packet; field 5 = 1 when there is none.
void SetData(CRemotePacket& rReply, std::span<const float> aData)
{
    const auto uiBytes = static_cast<std::uint32_t>(aData.size_bytes());
    const bool bHasData = !aData.empty() && aData.size_bytes() == uiBytes &&
                          rReply.SetOptSize(uiBytes) && rReply.SetData4(0, aData.data(), uiBytes);
    rReply.SetNthField(5, bHasData ? 0 : 1);
}
}  // namespace

void CRspUtil::CreateResponse(const CRemotePacket& rRequest)
{
    ClearAll();
    const std::uint16_t uiType = rRequest.GetRspMsg();
    if (uiType != CMsgConst::CMDREPLY && uiType != CMsgConst::DATAREPLY) return;
    auto pReply = std::make_unique<CRemotePacket>();
    pReply->SetMsgType(uiType);
    pReply->SetSerial(GetNextSerial());
    pReply->SetParentSerial(rRequest.GetSerial());
    if (uiType == CMsgConst::DATAREPLY) mFill(rRequest, *pReply);
    m_pPacket = std::move(pReply);
    m_iNumPackets = 1;
}

void CRspUtil::mFill(const CRemotePacket& rRequest, CRemotePacket& rReply)
{
    std::string strReason;
    const std::uint32_t uiWhich = rRequest.GetNthField(4);
    switch (rRequest.GetMsgType())
    {
    case CMsgConst::PROJGET:
        return SetData(rReply, FindProj(uiWhich, strReason));
    case CMsgConst::VOLGET:
    {
        const auto uiSlice = static_cast<std::uint32_t>(static_cast<short>(uiWhich));
        SetData(rReply, FindSlice(uiSlice, strReason));
        const int iSlices = CVolData::GetInstance()->GetVolume()->GetSizeZ();
        if (uiSlice + 1 == static_cast<std::uint32_t>(iSlices)) CVolData::DeleteInstance();
        return;
    }
    case CMsgConst::RECONSTATGET:
        return SetData(rReply, FindRfactors(uiWhich, strReason));
    default:
        return SetServerProp(rReply);
    }
}

CRemotePacket* CRspUtil::GetNthPacket(int n)
{
    return n == 0 ? m_pPacket.get() : nullptr;
}

void CRspUtil::ClearNthPacket(int n)
{
    if (n == 0) m_pPacket.reset();
}

void CRspUtil::ClearAll()
{
    m_pPacket.reset();
    m_iNumPackets = 0;
}
