#include "server/Data/CmdReply.h"

std::unique_ptr<CCmdReply> CCmdReply::m_pInstance;

CCmdReply* CCmdReply::GetInstance()
{
    if (!m_pInstance) m_pInstance.reset(new CCmdReply);
    return m_pInstance.get();
}

void CCmdReply::Create(const CRemotePacket& rRequest, bool bDone)
{
    m_aRemotePacket.SetMsgType(CMsgConst::CMDREPLY);
    m_aRemotePacket.SetParentSerial(rRequest.GetSerial());
    m_aRemotePacket.SetNthField(5, bDone ? 0 : 1);
}

void CCmdReply::RefuseCompare(const CRemotePacket& rRequest)
{
    m_aRemotePacket.SetMsgType(CMsgConst::COMPREPLY);
    m_aRemotePacket.SetParentSerial(rRequest.GetSerial());
    for (int i = 5; i <= 15; ++i) m_aRemotePacket.SetNthField(i, 0);
}
