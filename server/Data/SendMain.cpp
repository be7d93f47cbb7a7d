#include "server/Data/SendMain.h"

#include <cstdio>

#include "server/Data/CmdReply.h"
#include "server/Data/DataReply.h"

std::uint32_t CSendMain::m_uiSerial = 0;

bool CSendMain::CmdReply()
{
    CRemotePacket& rPacket = CCmdReply::GetInstance()->GetPacket();
    const std::uint32_t uiParent = rPacket.GetParentSerial();
    rPacket.SetSerial(m_uiSerial++);
    std::printf("CmdReply: ParentSerial = %d\n", static_cast<int>(uiParent));
    if (rPacket.SendToClient()) return true;
    std::printf("CmdReply: failed (Parent serial = %d)\n", static_cast<int>(uiParent));
    return false;
}

bool CSendMain::DataReply()
{
    CRemotePacket& rPacket = CDataReply::GetInstance()->GetPacket();
    rPacket.SetSerial(m_uiSerial++);
    return rPacket.SendToClient();
}

bool CSendMain::SendQuit()
{
    CRemotePacket aPacket;
    aPacket.SetMsgType(CMsgConst::QUIT);
    aPacket.SetSerial(m_uiSerial++);
    return aPacket.SendToClient();
}
