#pragma once

#include <cstdint>
#include <string>

#include "server/Data/RemotePacket.h"
#include "server/Data/RequestPlan.h"

struct Message;

/// The session: serves one client after another on the main thread, one request at a time.
class CClientMain
{
public:
    /// Waits for a client. \return false when it could not be accepted
    [[nodiscard]] bool ConnectClient();
    [[noreturn]] void DoIt();
    /// Receives one packet and serves it. \return false when the client is gone
    [[nodiscard]] bool ServePacket();

private:
    int mAccept();
    bool mHasClientPacket();
    bool mRecvPacket(CRequestPlan& rPlan);
    void mProcessCmd(const CRequestPlan& rPlan);
    void mServe(const Message& rMessage, const CRequestPlan& rPlan);
    bool mHandle(const Message& rMessage, const CRequestPlan& rPlan);
    bool mRun(std::uint32_t uiMsgType, std::string& rReason);
    void mReply(const Message& rMessage, bool bDone);
    void mHandleClientQuit();
    void mFinal();

    CRemotePacket m_aRemotePacket;  // the request
    bool m_bQuit = false;           // the client is finished
};
