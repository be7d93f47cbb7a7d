#pragma once

#include <cstdint>

#include "server/Data/RequestPlan.h"

enum class EReply
{
    eNone,
    eCommand,  // CMDREPLY
    eJob,      // as eCommand, but the session goes on when it cannot be sent
    eCompare,  // COMPREPLY
    eData      // DATAREPLY
};

/// One type of message: its name, how it is answered, and who decides what becomes of it.
struct Message
{
    std::uint32_t uiType;
    const char* pcName;
    EReply eReply = EReply::eNone;
    CRequestPlan (*pHandler)(const CRemotePacket& rPacket) = nullptr;  ///< null: data is dropped
    bool bAnnounce = false;  ///< a line is printed before the reply
};

/// The messages of the protocol; null for a type that is none.
const Message* FindMessage(std::uint32_t uiType);
