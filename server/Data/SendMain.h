#pragma once

#include <cstdint>
#include <memory>

/// Sends the replies and numbers all packets that the session sends. The number goes on from one
/// client to the next.
class CSendMain
{
public:
    static CSendMain* GetInstance();
    static void DeleteInstance() { m_pInstance.reset(); }

    // False when the packet could not be sent; its number is used up then, too.
    [[nodiscard]] bool CmdReply();
    [[nodiscard]] bool DataReply();
    bool SendQuit();

private:
    CSendMain() = default;
    static std::unique_ptr<CSendMain> m_pInstance;
    static std::uint32_t m_uiSerial;
};
