#pragma once

#include <cstdint>
#include <memory>

#include "server/Data/MsgConst.h"

class CRemotePacket;

/// Tracker of a message that is cut into a main packet and CONTINUATION packets.
///
/// The session feeds neither tracker: a message must arrive whole in one packet.
class CContinuation
{
public:
    static CContinuation* GetClient();  ///< for messages from the client
    static void DeleteClient() { m_pClient.reset(); }
    static CContinuation* GetServer();  ///< for messages of the server
    static void DeleteServer() { m_pServer.reset(); }

    void Process(const CRemotePacket* pPacket);  ///< null is ignored
    /// True for a child of the chain and for the packet that was processed last.
    bool IsCont(const CRemotePacket* pPacket) const;
    std::uint32_t GetMsgType() const { return m_uiMsgType; }
    std::uint32_t GetSerial() const { return m_uiSerial; }

private:
    void mProcessMainMsg(const CRemotePacket& rPacket);
    void mProcessContMsg(const CRemotePacket& rPacket);
    bool mIsChild(const CRemotePacket& rPacket) const;

    static std::unique_ptr<CContinuation> m_pClient, m_pServer;
    std::uint32_t m_uiMsgType = CMsgConst::INVALID;  // of the main packet
    std::uint32_t m_uiSerial = 0;                    // of the last packet of the chain
};
