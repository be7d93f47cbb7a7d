#pragma once

#include <sys/types.h>

/// What the server's process takes, from /proc; 0 when it has gone.
struct Vitals
{
    long lRss = 0, lPeak = 0;  ///< resident memory now and at most, KiB
    int iThreads = 0;
    int iDescriptors = 0;
};
Vitals GetVitals(pid_t iPid);
