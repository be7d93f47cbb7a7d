#include "Util/Util_Memory.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <memory>

namespace
{
struct Closer
{
    void operator()(std::FILE* pFile) const { std::fclose(pFile); }
};
using File = std::unique_ptr<std::FILE, Closer>;
}  // namespace

std::size_t Util_Memory::GetAvailable()
{
    const File pFile(std::fopen("/proc/meminfo", "re"));
    char acLine[256];
    unsigned long long ulKiB = 0;
    while (pFile && std::fgets(acLine, sizeof acLine, pFile.get()) != nullptr)
        if (std::sscanf(acLine, "MemAvailable: %llu", &ulKiB) == 1) return ulKiB * 1024;
    return SIZE_MAX;
}

std::size_t Util_Memory::GetResident()
{
    const File pFile(std::fopen("/proc/self/statm", "re"));
    unsigned long long ulSize = 0, ulResident = 0;
    if (!pFile || std::fscanf(pFile.get(), "%llu %llu", &ulSize, &ulResident) != 2) return 0;
    return ulResident * static_cast<unsigned long long>(sysconf(_SC_PAGESIZE));
}
