#include "gpulib/Device/Host/HostMemory.h"

#include <sys/mman.h>

#include <cstdlib>
#include <cstring>

#include "Util/Util_Memory.h"

namespace
{
constexpr std::size_t g_tLine = 64;
constexpr std::size_t g_tHugePage = std::size_t(2) << 20;
constexpr std::size_t g_tHuge = std::size_t(1) << 20;  // from here on take whole huge pages
constexpr std::size_t g_tBig = std::size_t(64) << 20;  // from here on ask what is left
}  // namespace

HostBlock AllocateZeroed(std::size_t tBytes)
{
    const bool bHuge = tBytes >= g_tHuge;
    const std::size_t tAlign = bHuge ? g_tHugePage : g_tLine;
    const std::size_t tRounded = (tBytes + tAlign - 1) / tAlign * tAlign;
    // The kernel overcommits: a job too big would be killed instead of refused.
    if (tBytes >= g_tBig &&
        (tBytes > Util_Memory::GetMachine() || tBytes >= Util_Memory::GetAvailable()))
        return nullptr;
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
