#pragma once

#include <cstdint>

/// Message types of the wire protocol.
class CMsgConst
{
public:
    static constexpr std::uint16_t BYTEORDER = 0;
    static constexpr std::uint16_t CMDREPLY = 1;
    static constexpr std::uint16_t CONTINUATION = 2;
    static constexpr std::uint16_t DATAREPLY = 3;
    static constexpr std::uint16_t LOG = 4;
    static constexpr std::uint16_t PROJGET = 5;
    static constexpr std::uint16_t PROJSET = 6;
    static constexpr std::uint16_t PROJSIZE = 7;
    static constexpr std::uint16_t QUIT = 8;
    static constexpr std::uint16_t RECONSTRUCT = 9;
    static constexpr std::uint16_t RECONSTATGET = 10;
    static constexpr std::uint16_t REPROJECT = 11;
    static constexpr std::uint16_t SERVERPROP = 12;
    static constexpr std::uint16_t VOLGET = 13;
    static constexpr std::uint16_t VOLSET = 14;
    static constexpr std::uint16_t VOLSIZE = 15;
    static constexpr std::uint16_t SETOP = 16;
    static constexpr std::uint16_t RECONOPT = 17;
    static constexpr std::uint16_t MPROJSET = 18;
    static constexpr std::uint16_t MPROJSIZE = 19;
    static constexpr std::uint16_t TRANSFORM = 20;
    static constexpr std::uint16_t TRANSFORML = 21;
    static constexpr std::uint16_t COMPARE = 22;
    static constexpr std::uint16_t COMPAREL = 23;
    static constexpr std::uint16_t COMPREPLY = 24;
    static constexpr std::uint16_t WEIGHTOPT = 25;
    static constexpr std::uint16_t CTFOPT = 26;
    static constexpr std::uint16_t SMOOTHOPT = 27;
    static constexpr std::uint16_t NORESPONSE = 10001;  // never sent
    static constexpr std::uint16_t INVALID = 10002;     // never sent by the server
};
