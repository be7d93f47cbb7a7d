#include "server/Data/RemoteHdr.h"

#include "server/Data/Messages.h"

std::uint16_t CRemoteHdr::GetRspMsgType() const
{
    const Message* const pMessage = FindMessage(m_auiVals[0]);
    if (pMessage == nullptr || pMessage->uiType > CMsgConst::VOLSIZE ||
        pMessage->eReply == EReply::eNone)
        return CMsgConst::NORESPONSE;
    return pMessage->eReply == EReply::eData ? CMsgConst::DATAREPLY : CMsgConst::CMDREPLY;
}
