#include "gpulib/Device/Host/HostMemory.h"

#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "Util/Util_Memory.h"

namespace
{
constexpr std::size_t g_tLine = 64;
constexpr std::size_t g_tPage = 4096;
constexpr std::size_t g_tHugePage = std::size_t(2) << 20;
constexpr std::size_t g_tHuge = std::size_t(1) << 20;  // from here on take whole huge pages
constexpr std::size_t g_tBig = std::size_t(64) << 20;  // from here on ask what is left

std::size_t RoundUp(std::size_t tBytes, std::size_t tUnit)
{
    return (tBytes + tUnit - 1) / tUnit * tUnit;
}

/// Zero pages that begin at a huge page; null when there are none. The last ones are small: a huge
/// one takes memory as a whole.
void* MapHuge(std::size_t tBytes)
{
    void* pvMapped = mmap(nullptr, tBytes + g_tHugePage, PROT_READ | PROT_WRITE,
                          MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pvMapped == MAP_FAILED) return nullptr;
    char* const pcMapped = static_cast<char*>(pvMapped);
    const std::size_t tBefore = -reinterpret_cast<std::uintptr_t>(pcMapped) % g_tHugePage;
    if (tBefore > 0) munmap(pcMapped, tBefore);
    munmap(pcMapped + tBefore + tBytes, g_tHugePage - tBefore);
#ifdef MADV_HUGEPAGE
    madvise(pcMapped + tBefore, tBytes, MADV_HUGEPAGE);  // a hint: nothing depends on it
#endif
    return pcMapped + tBefore;
}
}  // namespace

HostBlock AllocateZeroed(std::size_t tBytes)
{
    // The kernel overcommits: a job too big would be killed instead of refused.
    if (tBytes >= g_tBig &&
        (tBytes > Util_Memory::GetMachine() || tBytes >= Util_Memory::GetAvailable()))
        return nullptr;
    if (tBytes >= g_tHuge) return HostBlock(MapHuge(RoundUp(tBytes, g_tPage)), {tBytes});
    void* pvData = std::aligned_alloc(g_tLine, RoundUp(tBytes, g_tLine));
    if (pvData) std::memset(pvData, 0, tBytes);
    return HostBlock(pvData, {tBytes});
}

void CHostPages::ReleaseTo(void* pvEnd)
{
    const std::size_t tBytes =
        std::size_t(static_cast<char*>(pvEnd) - m_pcFirst) / g_tHugePage * g_tHugePage;
    Util_Memory::Release(m_pcFirst, tBytes, g_tHugePage);
    m_pcFirst += tBytes;
}

void HostRelease::operator()(void* pvData) const
{
    if (tBytes >= g_tHuge)
        munmap(pvData, RoundUp(tBytes, g_tPage));
    else
        std::free(pvData);
}
