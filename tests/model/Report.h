#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "tests/model/Tally.h"

/// What the command line asks for.
struct Options
{
    double dSeconds = 1800;
    std::uint64_t ulSeed = 1, ulFirst = 0, ulSessions = UINT64_MAX;
    int iClients = 3;
    long lGrowth = 16;  ///< MiB that the server may gain after 100 sessions, -1: any
    bool bTrace = false;
    std::string strServer;

    /// \return false, with the usage printed, when an option is not known
    [[nodiscard]] bool Parse(int iCount, char** ppcArguments);
};

/// What the server's process takes, from /proc; 0 when it has gone.
struct Vitals
{
    long lRss = 0, lPeak = 0;  ///< resident memory now and at most, KiB
    int iThreads = 0, iDescriptors = 0;
};
Vitals GetVitals(pid_t iPid);

/// The server at some points of a run.
struct Course
{
    Vitals aStart, aHundred, aHighest, aEnd;
    double dSeconds = 1e-3;
};

/// Fails when descriptors or threads are not what they were, memory has grown, or more results than
/// a few could not be judged.
void CheckCourse(const Options& rOptions, const Course& rCourse, Tally& rTally);
/// The table at the end.
void Print(const Options& rOptions, const Course& rCourse, const Tally& rTally);
