#pragma once

#include <cstdint>

#include "Util/Util_Singleton.h"

/// Sends the replies and numbers all packets that the session sends. The number goes on from one
/// client to the next.
class CSendMain : public Util_Singleton<CSendMain>
{
public:
    // False when the packet could not be sent; its number is used up then, too.
    [[nodiscard]] bool CmdReply();
    [[nodiscard]] bool DataReply();
    bool SendQuit();

private:
    static std::uint32_t m_uiSerial;
};
