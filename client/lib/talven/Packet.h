#pragma once

#include <array>
#include <bit>
#include <cstdint>

namespace talven
{

/// Message types of the wire protocol (docs/protocol.md), in the order of their numbers from 0.
#define TALVEN_MESSAGES(X)                                                                    \
    X(BYTEORDER), X(CMDREPLY), X(CONTINUATION), X(DATAREPLY), X(LOG), X(PROJGET), X(PROJSET), \
        X(PROJSIZE), X(QUIT), X(RECONSTRUCT), X(RECONSTATGET), X(REPROJECT), X(SERVERPROP),   \
        X(VOLGET), X(VOLSET), X(VOLSIZE), X(SETOP), X(RECONOPT), X(MPROJSET), X(MPROJSIZE),   \
        X(TRANSFORM), X(TRANSFORML), X(COMPARE), X(COMPAREL), X(COMPREPLY), X(WEIGHTOPT),     \
        X(UNKNOWN), X(SMOOTHOPT)

#define TALVEN_MESSAGE(NAME) NAME
enum class EMsg : std::uint32_t
{
    TALVEN_MESSAGES(TALVEN_MESSAGE)
};
#undef TALVEN_MESSAGE
static_assert(EMsg::SMOOTHOPT == EMsg(27));

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
