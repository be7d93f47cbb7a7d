#include "Util/Util_Memory.h"

#include <unistd.h>

#include <cstdio>

std::size_t Util_Memory::GetAvailable()
{
    std::size_t tKiB = 0;
    if (std::FILE* pFile = std::fopen("/proc/meminfo", "re"))
    {
        char acLine[128];
        while (tKiB == 0 && std::fgets(acLine, sizeof acLine, pFile) != nullptr)
            if (std::sscanf(acLine, "MemAvailable: %zu kB", &tKiB) != 1) tKiB = 0;
        std::fclose(pFile);
    }
    if (tKiB != 0) return tKiB * 1024;
    const long lPages = sysconf(_SC_AVPHYS_PAGES), lPageBytes = sysconf(_SC_PAGESIZE);
    return lPages > 0 && lPageBytes > 0 ? static_cast<std::size_t>(lPages) * lPageBytes : 0;
}
