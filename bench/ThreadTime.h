#pragma once

#include <ctime>

/// What the calling thread has computed, seconds: not moved by other programs on the machine.
inline double ThreadSeconds()
{
    timespec aTime;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &aTime);
    return double(aTime.tv_sec) + 1e-9 * double(aTime.tv_nsec);
}
