#include "tests/soak/Options.h"

#include <getopt.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace
{
constexpr char g_acUsage[] =
    "usage: soak [options] [SECONDS]\n"
    "  --seed N       other sessions (1)\n"
    "  --sessions N   end after so many\n"
    "  --only K       session K alone, to repeat a failure\n"
    "  --clients N    client processes that take turns (3)\n"
    "  --growth MIB   memory that the server may gain after 100 sessions (16); -1: any\n"
    "  --server PATH  another build of the server\n";

constexpr option g_aLong[] = {{"seed", 1, nullptr, 's'},   {"sessions", 1, nullptr, 'n'},
                              {"only", 1, nullptr, 'k'},   {"clients", 1, nullptr, 'c'},
                              {"growth", 1, nullptr, 'g'}, {"server", 1, nullptr, 'p'},
                              {nullptr, 0, nullptr, 0}};
}  // namespace

bool Options::Parse(int iCount, char** ppcArguments)
{
    bool bUsable = true;
    for (int c; (c = getopt_long(iCount, ppcArguments, "", g_aLong, nullptr)) != -1;)
    {
        const char* pcValue = optarg != nullptr ? optarg : "";
        if (c == 's') ulSeed = std::strtoull(pcValue, nullptr, 0);
        if (c == 'n') ulSessions = std::strtoull(pcValue, nullptr, 0);
        if (c == 'k') ulFirst = std::strtoull(pcValue, nullptr, 0), ulSessions = 1;
        if (c == 'c') iClients = std::atoi(pcValue);
        if (c == 'g') lGrowth = std::atol(pcValue);
        if (c == 'p') strServer = std::filesystem::absolute(pcValue);  // it runs elsewhere
        if (c == '?') bUsable = false;
    }
    if (optind < iCount) dSeconds = std::atof(ppcArguments[optind++]);
    bUsable = bUsable && optind == iCount && dSeconds > 0 && iClients > 0;
    if (!bUsable) std::fputs(g_acUsage, stderr);
    return bUsable;
}
