#pragma once

#include <sys/time.h>

/// Wall-clock stopwatch.
class Util_Time
{
public:
    void Measure() { gettimeofday(&m_aTimeval, nullptr); }
    float GetElapsedSeconds() const
    {
        timeval aNow;
        gettimeofday(&aNow, nullptr);
        return static_cast<float>(static_cast<double>(aNow.tv_sec - m_aTimeval.tv_sec) +
                                  1e-6 * static_cast<double>(aNow.tv_usec - m_aTimeval.tv_usec));
    }

private:
    timeval m_aTimeval = {};
};
