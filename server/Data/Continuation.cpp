#include "server/Data/Continuation.h"

#include "server/Data/RemotePacket.h"

std::unique_ptr<CContinuation> CContinuation::m_pClient;
std::unique_ptr<CContinuation> CContinuation::m_pServer;

CContinuation* CContinuation::GetClient()
{
    if (!m_pClient) m_pClient = std::make_unique<CContinuation>();
    return m_pClient.get();
}

CContinuation* CContinuation::GetServer()
{
    if (!m_pServer) m_pServer = std::make_unique<CContinuation>();
    return m_pServer.get();
}

void CContinuation::Process(const CRemotePacket* pPacket)
{
    if (pPacket == nullptr) return;
    if (pPacket->GetMsgType() == CMsgConst::CONTINUATION)
        mProcessContMsg(*pPacket);
    else
        mProcessMainMsg(*pPacket);
}

bool CContinuation::IsCont(const CRemotePacket* pPacket) const
{
    return pPacket != nullptr && (mIsChild(*pPacket) || pPacket->GetSerial() == m_uiSerial);
}

void CContinuation::mProcessMainMsg(const CRemotePacket& rPacket)
{
    m_uiMsgType = rPacket.GetMsgType();
    m_uiSerial = rPacket.GetSerial();
}

void CContinuation::mProcessContMsg(const CRemotePacket& rPacket)
{
    if (mIsChild(rPacket)) m_uiSerial = rPacket.GetSerial();
}

bool CContinuation::mIsChild(const CRemotePacket& rPacket) const
{
    return rPacket.GetParentSerial() == m_uiSerial;
}
