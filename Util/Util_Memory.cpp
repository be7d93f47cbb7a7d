#include "Util/Util_Memory.h"

#include <sys/mman.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

#include "Machine/MachineLimits.h"

namespace
{
struct Closer
{
    void operator()(std::FILE* pFile) const { std::fclose(pFile); }
};
using File = std::unique_ptr<std::FILE, Closer>;

std::size_t g_tAssumed = 0;

/// First number of the line of a file that begins with pcKey; SIZE_MAX when there is none.
std::size_t ReadNumber(const char* pcFile, const char* pcKey)
{
    const File pFile(std::fopen(pcFile, "re"));
    const std::size_t tKey = std::strlen(pcKey);
    char acLine[256];
    unsigned long long ulValue = 0;
    while (pFile && std::fgets(acLine, sizeof acLine, pFile.get()) != nullptr)
        if (std::strncmp(acLine, pcKey, tKey) == 0 &&
            std::sscanf(acLine + tKey, " %llu", &ulValue) == 1)
            return ulValue;
    return SIZE_MAX;
}
}  // namespace

void Util_Memory::Assume(std::size_t tBytes)
{
    g_tAssumed = tBytes;
}

std::size_t Util_Memory::GetMachine()
{
    const std::size_t tPhysical = static_cast<std::size_t>(sysconf(_SC_PHYS_PAGES)) *
                                  static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    return std::min(tPhysical, talven::CMachineLimits().GetMemory());
}

std::size_t Util_Memory::GetAvailable()
{
    if (g_tAssumed != 0) return g_tAssumed;
    const std::size_t tKiB = ReadNumber("/proc/meminfo", "MemAvailable:");
    if (tKiB != SIZE_MAX) return std::min(tKiB * 1024, talven::CMachineLimits().GetFreeMemory());
    // No /proc or no descriptor left: what is free at least.
    struct sysinfo aInfo = {};
    if (sysinfo(&aInfo) != 0) return SIZE_MAX;
    return std::size_t{aInfo.freeram} * aInfo.mem_unit;
}

std::size_t Util_Memory::GetResident()
{
    if (g_tAssumed != 0) return 0;
    const File pFile(std::fopen("/proc/self/statm", "re"));
    unsigned long long ulSize = 0, ulResident = 0;
    if (!pFile || std::fscanf(pFile.get(), "%llu %llu", &ulSize, &ulResident) != 2) return 0;
    return ulResident * static_cast<unsigned long long>(sysconf(_SC_PAGESIZE));
}

void Util_Memory::Populate([[maybe_unused]] void* pvData, [[maybe_unused]] std::size_t tBytes)
{
#ifdef MADV_POPULATE_WRITE
    const auto tPage = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto tFirst = reinterpret_cast<std::uintptr_t>(pvData) / tPage * tPage;
    const auto tEnd = reinterpret_cast<std::uintptr_t>(pvData) + tBytes;
    madvise(reinterpret_cast<void*>(tFirst), tEnd - tFirst, MADV_POPULATE_WRITE);
#endif
}

void Util_Memory::Release(void* pvData, std::size_t tBytes, std::size_t tLeast)
{
    const auto tPage = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto tFirst = (reinterpret_cast<std::uintptr_t>(pvData) + tPage - 1) / tPage * tPage;
    const auto tEnd = (reinterpret_cast<std::uintptr_t>(pvData) + tBytes) / tPage * tPage;
    if (tBytes >= tLeast && tFirst < tEnd)
        madvise(reinterpret_cast<void*>(tFirst), tEnd - tFirst, MADV_DONTNEED);
}
