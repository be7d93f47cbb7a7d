#pragma once

#include <array>
#include <bit>
#include <cstdint>

namespace talven
{

/// Message types of the wire protocol that a client sends or receives (docs/protocol.md).
enum class EMsg : std::uint32_t
{
    BYTEORDER = 0,
    CMDREPLY = 1,
    CONTINUATION = 2,
    DATAREPLY = 3,
    LOG = 4,
    PROJGET = 5,
    PROJSET = 6,
    PROJSIZE = 7,
    QUIT = 8,
    RECONSTRUCT = 9,
    RECONSTATGET = 10,
    REPROJECT = 11,
    SERVERPROP = 12,
    VOLGET = 13,
    VOLSET = 14,
    VOLSIZE = 15,
    SETOP = 16,
    RECONOPT = 17,
    MPROJSET = 18,
    MPROJSIZE = 19,
    TRANSFORM = 20,
    TRANSFORML = 21,
    COMPARE = 22,
    COMPAREL = 23,
    COMPREPLY = 24,
    WEIGHTOPT = 25,
    SMOOTHOPT = 27,
};

/// Name of a message type as the documentation writes it; "UNKNOWN" for other values.
const char* GetMsgName(EMsg eMsg);

/// The fixed part of a packet: sixteen 32-bit words in this machine's byte order, sent as they are
/// (the BYTEORDER message tells the server whether to swap).
struct PacketHeader
{
    std::array<std::uint32_t, 16> auiFields{};

    EMsg GetType() const { return static_cast<EMsg>(auiFields[0]); }
    std::uint32_t GetSerial() const { return auiFields[1]; }
    std::uint32_t GetDataBytes() const { return auiFields[3]; }
    std::uint32_t GetParent() const { return auiFields[4]; }  ///< of a reply
    std::uint32_t GetStatus() const { return auiFields[5]; }  ///< of a reply: 0 done, 1 refused

    float GetFloat(int iField) const { return std::bit_cast<float>(auiFields[iField]); }
    void SetFloat(int iField, float fValue)
    {
        auiFields[iField] = std::bit_cast<std::uint32_t>(fValue);
    }
};
static_assert(sizeof(PacketHeader) == 64);

}  // namespace talven
