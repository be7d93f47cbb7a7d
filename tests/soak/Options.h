#pragma once

#include <cstdint>
#include <string>

/// What the command line asks for.
struct Options
{
    double dSeconds = 1800;
    std::uint64_t ulSeed = 1;
    std::uint64_t ulFirst = 0, ulSessions = UINT64_MAX;
    int iClients = 3;
    long lGrowth = 16;  ///< MiB that the server may gain after 100 sessions, -1: any
    std::string strServer;

    /// \return false, with the usage printed, when an option is not known
    [[nodiscard]] bool Parse(int iCount, char** ppcArguments);
};
