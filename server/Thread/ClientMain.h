#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "server/Data/RemotePacket.h"

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
    enum class EReply
    {
        eNone,
        eCommand,
        eJob,      // as eCommand, but the session goes on when it cannot be sent
        eCompare,  // COMPREPLY
        eData
    };
    /// One message type that the session serves.
    struct Command
    {
        std::uint32_t m_uiMsgType;
        const char* m_pcName;
        EReply m_eReply;
        bool (CClientMain::*m_pHandler)(std::string& rReason);      // false: refused or failed
        std::uint32_t (*m_pCeiling)(const CRemotePacket& rPacket);  // null: no data in use
        // Uploads of images: where the data goes, nothing when it is refused.
        std::optional<UploadTarget> (*m_pTarget)(const CRemotePacket& rPacket,
                                                 std::string& rReason) = nullptr;
        bool m_bAnnounce = false;  // print a line before the reply
    };
    static const Command m_aCommands[];
    static const Command* mFindCommand(std::uint32_t uiMsgType);

    int mAccept();
    bool mHasClientPacket();
    void mRecvPacket();
    bool mRecvData();
    void mProcessCmd();
    void mServe(const Command& rCommand);
    bool mHandle(const Command& rCommand);
    void mReply(const Command& rCommand, bool bDone);
    void mFinal();

    bool mCheckByteOrder(std::string& rReason);
    bool mHandleContinuation(std::string& rReason);
    bool mHandleProjGet(std::string& rReason);
    bool mHandleImage(std::string& rReason);
    bool mHandleProjSize(std::string& rReason);
    bool mHandleMProjSize(std::string& rReason);
    bool mHandleQuit(std::string& rReason);
    bool mHandleVolGet(std::string& rReason);
    bool mHandleVolSize(std::string& rReason);
    bool mHandleSetOp(std::string& rReason);
    bool mHandleReconOpt(std::string& rReason);
    bool mHandleWeightOpt(std::string& rReason);
    bool mHandleSmoothOpt(std::string& rReason);
    bool mHandleReconStatGet(std::string& rReason);
    bool mHandleServerProp(std::string& rReason);
    bool mHandleCompReply(std::string& rReason);
    bool mStartRecon(std::string& rReason);
    bool mStartReproj(std::string& rReason);
    bool mHandleTransform(std::string& rReason);
    bool mHandleTransforml(std::string& rReason);
    bool mHandleCompare(std::string& rReason);
    bool mHandleComparel(std::string& rReason);
    void mHandleClientQuit();

    CRemotePacket m_aRemotePacket;  // the request
    bool m_bStored = false;         // its data has gone to a holder already
    std::string m_strRefusal;       // why it has not
    bool m_bQuit = false;           // the client is finished
};
