#pragma once

#include <cstddef>
#include <string>

/// What the selected device can do at most, measured: rates per second.
struct Ceilings
{
    double dL1 = 0, dL2 = 0;            ///< bytes of 16-byte loads that these caches answer
    double dMemory = 0;                 ///< bytes, read and written, within the device
    double dFloat = 0;                  ///< multiply-adds of single threads
    double dIssue = 0;                  ///< instructions of single threads, half of them integer
    double dToDevice = 0, dToHost = 0;  ///< bytes from and to pinned memory
    std::size_t tL2Bytes = 0;           ///< size of the second-level cache
};

struct CeilingSize
{
    std::size_t tCopyBytes;
    int iLoads;    ///< of each thread, a multiple of 8
    int iRepeats;  ///< the best one counts
};

/// \return false with the reason noted
[[nodiscard]] bool MeasureCeilings(const CeilingSize& rSize, Ceilings& rCeilings);

/// Name, memory, multiprocessors, versions of driver and runtime of the selected device.
std::string DescribeDevice();
