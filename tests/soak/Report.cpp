#include "tests/soak/Report.h"

#include <cstdio>

namespace
{
using Count = unsigned long long;

void PrintJobs(const Tally& rTally)
{
    Count ullJobs = 0;
    for (const ECheck e : {eBackProjected, eReprojected, eSartRun, eEmRun, eTransformed, eCompared})
        ullJobs += rTally.aulChecks[e];
    std::printf("jobs checked          %llu\n", ullJobs);
    for (int e = 0; e < eChecks; ++e)
    {
        std::printf("  %-19s %llu", g_apcChecks[e], Count(rTally.aulChecks[e]));
        if (rTally.adError[e] > 0)
            std::printf(", largest error %.0f %% of the tolerance", 100 * rTally.adError[e]);
        std::puts("");
    }
}

void PrintVitals(const Course& rCourse)
{
    const auto Mib = [](long lKib) { return double(lKib) / 1024; };
    const auto& [aStart, aHundred, aHighest, aEnd, dSeconds] = rCourse;
    std::printf("memory, MiB           ");
    if (aHundred.lRss > 0) std::printf("%.1f after 100 sessions, ", Mib(aHundred.lRss));
    std::printf("%.1f highest seen, %.1f at the end; peak %.1f\n", Mib(aHighest.lRss),
                Mib(aEnd.lRss), Mib(aEnd.lPeak));
    std::printf("descriptors           %d at the start, %d at the end\n", aStart.iDescriptors,
                aEnd.iDescriptors);
    std::printf("threads               %d at the start, %d at the end\n", aStart.iThreads,
                aEnd.iThreads);
}
}  // namespace

void CheckVitals(const Options& rOptions, const Course& rCourse, Tally& rTally)
{
    const auto& [aStart, aHundred, aHighest, aEnd, dSeconds] = rCourse;
    if (aEnd.iDescriptors != aStart.iDescriptors) rTally.Fail("descriptors have leaked");
    if (aEnd.iThreads != aStart.iThreads) rTally.Fail("threads have leaked");
    const bool bGrows = aHundred.lRss > 0 && rOptions.lGrowth >= 0 &&
                        aEnd.lRss > aHundred.lRss + 1024 * rOptions.lGrowth;
    if (bGrows) rTally.Fail("the server's memory grows");
}

void CheckCounts(Tally& rTally)
{
    if (rTally.aulChecks[eUnjudged] > 3 + rTally.aulChecks[eEmRun] / 5000)
        rTally.Fail("too many results of EM are not what they should be");
}

void Print(const Options& rOptions, const Course& rCourse, const Tally& rTally)
{
    std::printf("seed                  %llu\n", Count(rOptions.ulSeed));
    std::printf("sessions              %llu, %.1f a second, %llu requests\n",
                Count(rTally.ulSessions), double(rTally.ulSessions) / rCourse.dSeconds,
                Count(rTally.ulRequests));
    PrintJobs(rTally);
    std::printf("cut short             %llu closed, %llu reset; %llu of them after garbage\n",
                Count(rTally.ulClosed), Count(rTally.ulReset), Count(rTally.ulGarbage));
    if (rCourse.aEnd.lRss > 0) PrintVitals(rCourse);
    std::printf("%s%s\n", rTally.bFailed ? "FAILED: " : "all as expected", rTally.acFailure);
}
