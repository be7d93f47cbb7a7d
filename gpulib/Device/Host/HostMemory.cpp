#include "gpulib/Device/Host/HostMemory.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace
{
constexpr std::size_t g_tLine = 64;
constexpr std::size_t g_tHugePage = std::size_t(2) << 20;
constexpr std::size_t g_tHuge = std::size_t(1) << 20;  // from here on take whole huge pages
constexpr std::size_t g_tBig = std::size_t(64) << 20;  // from here on ask what is left
constexpr std::size_t g_tUnknown = std::numeric_limits<std::size_t>::max();

/// First number of the line that begins with pcKey ("" : of the file), or g_tUnknown.
std::size_t ReadNumber(const char* pcFile, const char* pcKey)
{
    std::FILE* pFile = std::fopen(pcFile, "r");
    if (!pFile) return g_tUnknown;
    std::size_t tValue = g_tUnknown;
    char acLine[256];
    while (tValue == g_tUnknown && std::fgets(acLine, sizeof(acLine), pFile))
    {
        const std::size_t tKey = std::strlen(pcKey);
        unsigned long long ullValue = 0;
        if (std::strncmp(acLine, pcKey, tKey) == 0 &&
            std::sscanf(acLine + tKey, " %llu", &ullValue) == 1)
            tValue = ullValue;
    }
    std::fclose(pFile);
    return tValue;
}

/// The kernel overcommits: without this test a job too big would be killed instead of refused.
bool IsLeft(std::size_t tBytes)
{
    const std::size_t tKiB = ReadNumber("/proc/meminfo", "MemAvailable:");
    return tKiB == g_tUnknown || tBytes / 1024 < tKiB;
}
}  // namespace

std::size_t GetMachineMemory()
{
    const std::size_t tPhysical =
        std::size_t(sysconf(_SC_PHYS_PAGES)) * std::size_t(sysconf(_SC_PAGE_SIZE));
    return std::min(tPhysical, ReadNumber("/sys/fs/cgroup/memory.max", ""));
}

HostBlock AllocateZeroed(std::size_t tBytes)
{
    const bool bHuge = tBytes >= g_tHuge;
    const std::size_t tAlign = bHuge ? g_tHugePage : g_tLine;
    const std::size_t tRounded = (tBytes + tAlign - 1) / tAlign * tAlign;
    if (tBytes >= g_tBig && (tBytes > GetMachineMemory() || !IsLeft(tBytes))) return nullptr;
    void* pvData = std::aligned_alloc(tAlign, tRounded);
    if (!pvData) return nullptr;
#ifdef MADV_HUGEPAGE
    if (bHuge) madvise(pvData, tRounded, MADV_HUGEPAGE);  // a hint: nothing depends on it
#endif
    std::memset(pvData, 0, tBytes);
    return HostBlock(pvData);
}

void HostRelease::operator()(void* pvData) const
{
    std::free(pvData);
}
