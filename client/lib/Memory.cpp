#include "talven/Memory.h"

#include <algorithm>
#include <fstream>
#include <limits>

#include "Machine/MachineLimits.h"
#include "talven/Text.h"

namespace talven
{
namespace
{

constexpr std::uint64_t g_ulMaxVoxels = std::uint64_t(1) << 31;  // of the server, exclusive
constexpr std::uint64_t g_ulMost = std::numeric_limits<std::uint64_t>::max();

/// Extents are below 2^31, so the product may exceed 64 bits: saturates.
std::uint64_t Multiply(int iA, int iB, int iC)
{
    const std::uint64_t ulTwo = std::uint64_t(iA) * std::uint64_t(iB);
    return ulTwo > g_ulMost / std::uint64_t(iC) ? g_ulMost : ulTwo * std::uint64_t(iC);
}

}  // namespace

std::uint64_t GetFreeMemory()
{
    std::ifstream aInfo("/proc/meminfo");
    std::string strName;
    std::string strRest;
    std::uint64_t ulKiB = 0;
    while (aInfo >> strName >> ulKiB && std::getline(aInfo, strRest))
        if (strName == "MemAvailable:")
            return std::min(ulKiB << 10, CMachineLimits().GetFreeMemory());
    return 0;
}

std::uint64_t JobSize::GetStackPixels() const
{
    return Multiply(iProjX, iProjY, iProjs);
}

std::uint64_t JobSize::GetVoxels() const
{
    return Multiply(iVolX, iVolZ, iProjY);
}

std::uint64_t JobSize::GetBytes(int iDevices) const
{
    constexpr std::uint64_t ulRowsAtOnce = 16;
    const std::uint64_t ulBatch =
        ulRowsAtOnce * 4 * (3 * Multiply(iProjX, iProjs, 1) + 2 * Multiply(iVolX, iVolZ, 1));
    const std::uint64_t ulRanges = 8 * Multiply(iProjY, iProjs, 1);
    return 4 * (GetStackPixels() + (bSmooth ? 2 : 1) * GetVoxels() + aMeasured.GetPixels()) +
           ulRanges + std::uint64_t(iDevices) * ulBatch;
}

bool CheckJobSize(const JobSize& rSize, bool bHere, std::string& rError)
{
    const bool bStack = rSize.GetStackPixels() >= g_ulMaxVoxels;
    if (bStack || rSize.GetVoxels() >= g_ulMaxVoxels)
        return Fail(
            rError,
            Format("the %s of %d x %d x %d has 2^31 or more %s, which no server takes",
                   bStack ? "stack" : "volume", bStack ? rSize.iProjX : rSize.iVolX, rSize.iProjY,
                   bStack ? rSize.iProjs : rSize.iVolZ, bStack ? "pixels" : "voxels"));
    const std::uint64_t ulFree = GetFreeMemory();
    const std::uint64_t ulNeeded = rSize.GetBytes(1);
    return !bHere || ulFree == 0 || ulNeeded <= ulFree ||
           Fail(rError, "the server would need " + FormatBytes(ulNeeded) +
                            " of memory, this machine has " + FormatBytes(ulFree) + " free");
}

}  // namespace talven
