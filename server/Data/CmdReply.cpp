#include "server/Data/CmdReply.h"

#include "server/Data/Recon/CompareSum.h"
#include "server/Data/ReplyData.h"

void CCmdReply::Create(const CRemotePacket& rRequest, bool bDone)
{
    m_aRemotePacket.SetMsgType(CMsgConst::CMDREPLY);
    m_aRemotePacket.SetParentSerial(rRequest.GetSerial());
    m_aRemotePacket.SetNthField(5, bDone ? 0 : 1);
}

void CCmdReply::CompReply(const CRemotePacket& rRequest, bool bDone)
{
    m_aRemotePacket.SetMsgType(CMsgConst::COMPREPLY);
    m_aRemotePacket.SetParentSerial(rRequest.GetSerial());
    m_aRemotePacket.SetNthField(5, bDone ? 0 : 1);
    SetCompareSums(m_aRemotePacket);
    m_aRemotePacket.SetNthField(15, CCompareSum::GetInstance()->GetCount());
}
