#include "server/Data/RemoteHdr.h"

std::uint16_t CRemoteHdr::GetRspMsgType() const
{
    switch (m_auiVals[0])
    {
    case CMsgConst::PROJGET:
    case CMsgConst::RECONSTATGET:
    case CMsgConst::SERVERPROP:
    case CMsgConst::VOLGET:
        return CMsgConst::DATAREPLY;
    case CMsgConst::PROJSET:
    case CMsgConst::PROJSIZE:
    case CMsgConst::RECONSTRUCT:
    case CMsgConst::REPROJECT:
    case CMsgConst::VOLSET:
    case CMsgConst::VOLSIZE:
        return CMsgConst::CMDREPLY;
    default:
        return CMsgConst::NORESPONSE;
    }
}
