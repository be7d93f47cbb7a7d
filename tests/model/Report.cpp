#include "tests/model/Report.h"

#include <getopt.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace
{
using Count = unsigned long long;

constexpr char g_acUsage[] =
    "usage: soak [options] [SECONDS]\n"
    "  --seed N       other sessions (1)\n"
    "  --sessions N   end after so many\n"
    "  --only K       session K alone, to repeat a failure\n"
    "  --clients N    clients that take turns (3)\n"
    "  --growth MIB   memory that the server may gain after 100 sessions (16); -1: any\n"
    "  --server PATH  another build of the server\n"
    "  --trace        prints the requests\n";

constexpr option g_aLong[] = {{"seed", 1, nullptr, 's'},   {"sessions", 1, nullptr, 'n'},
                              {"only", 1, nullptr, 'k'},   {"clients", 1, nullptr, 'c'},
                              {"growth", 1, nullptr, 'g'}, {"server", 1, nullptr, 'p'},
                              {"trace", 0, nullptr, 't'},  {nullptr, 0, nullptr, 0}};
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
        if (c == 't') bTrace = true;
        if (c == '?') bUsable = false;
    }
    if (optind < iCount) dSeconds = std::atof(ppcArguments[optind++]);
    bUsable = bUsable && optind == iCount && dSeconds > 0 && iClients > 0;
    if (!bUsable) std::fputs(g_acUsage, stderr);
    return bUsable;
}

Vitals GetVitals(pid_t iPid)
{
    Vitals aVitals;
    const std::string strProcess = "/proc/" + std::to_string(iPid);
    std::ifstream aStatus(strProcess + "/status");
    for (std::string strKey, strRest; aStatus >> strKey && std::getline(aStatus, strRest);)
    {
        const long lValue = std::strtol(strRest.c_str(), nullptr, 10);
        if (strKey == "VmRSS:") aVitals.lRss = lValue;
        if (strKey == "VmHWM:") aVitals.lPeak = lValue;
        if (strKey == "Threads:") aVitals.iThreads = static_cast<int>(lValue);
    }
    std::error_code aIgnored;
    for (std::filesystem::directory_iterator a(strProcess + "/fd", aIgnored), aEnd;
         !aIgnored && a != aEnd; a.increment(aIgnored))
        ++aVitals.iDescriptors;
    return aVitals;
}

void CheckCourse(const Options& rOptions, const Course& rCourse, Tally& rTally)
{
    const auto& [aStart, aHundred, aHighest, aEnd, dSeconds] = rCourse;
    if (aEnd.iDescriptors != aStart.iDescriptors) rTally.Fail("descriptors have leaked");
    if (aEnd.iThreads != aStart.iThreads) rTally.Fail("threads have leaked");
    const bool bGrows = aHundred.lRss > 0 && rOptions.lGrowth >= 0 &&
                        aEnd.lRss > aHundred.lRss + 1024 * rOptions.lGrowth;
    if (bGrows) rTally.Fail("the server's memory grows");
    if (rTally.aulChecks[eUnjudged] > 3 + rTally.aulChecks[eEmRun] / 5000)
        rTally.Fail("too many results of EM are not what they should be");
}

void Print(const Options& rOptions, const Course& rCourse, const Tally& rTally)
{
    const auto& [aStart, aHundred, aHighest, aEnd, dSeconds] = rCourse;
    const auto Mib = [](long lKib) { return double(lKib) / 1024; };
    Count ullJobs = 0;
    for (const ECheck e : {eBackProjected, eReprojected, eSartRun, eEmRun, eTransformed, eCompared})
        ullJobs += rTally.aulChecks[e];
    std::printf("seed                  %llu\n", Count(rOptions.ulSeed));
    std::printf("sessions              %llu, %.1f a second, %llu requests\n",
                Count(rTally.ulSessions), double(rTally.ulSessions) / dSeconds,
                Count(rTally.ulRequests));
    std::printf("jobs checked          %llu\n", ullJobs);
    for (int e = 0; e < eChecks; ++e)
    {
        std::printf("  %-19s %llu", g_apcChecks[e], Count(rTally.aulChecks[e]));
        if (rTally.adError[e] > 0)
            std::printf(", largest error %.0f %% of the tolerance", 100 * rTally.adError[e]);
        std::puts("");
    }
    std::printf("cut short             %llu, %llu of them after garbage\n", Count(rTally.ulCut),
                Count(rTally.ulGarbage));
    if (aEnd.lRss > 0)
        std::printf(
            "memory, MiB           %.1f after 100 sessions, %.1f highest seen, %.1f at the "
            "end; peak %.1f\n"
            "descriptors           %d at the start, %d at the end\n"
            "threads               %d at the start, %d at the end\n",
            Mib(aHundred.lRss), Mib(aHighest.lRss), Mib(aEnd.lRss), Mib(aEnd.lPeak),
            aStart.iDescriptors, aEnd.iDescriptors, aStart.iThreads, aEnd.iThreads);
    if (rTally.strFailure.empty())
        std::puts("all as expected");
    else
        std::printf("FAILED: %s\n", rTally.strFailure.c_str());
}
