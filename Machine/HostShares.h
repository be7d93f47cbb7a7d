#pragma once

#include <algorithm>

namespace talven
{

/// How many devices the host backend makes of so many cores: one of each up to 16, which is what
/// clients know. Devices are given work alike and so have as many cores each; of more cores than 16
/// become 9 to 16 devices, whichever leaves the fewest idle: of 24 cores 12 devices of 2, of 32
/// cores 16.
inline int CountHostDevices(int iCores)
{
    constexpr int iMost = 16, iFewest = 9;
    if (iCores <= iMost) return std::max(iCores, 1);
    int iBest = iMost;
    for (int i = iMost - 1; i >= iFewest; --i)
        if (iCores % i < iCores % iBest) iBest = i;
    return iBest;
}

}  // namespace talven
