// Which instruction sets this program has and this machine can run, and how its cores are shared.

#include <sched.h>

#include <algorithm>
#include <thread>

#include "gpulib/Device/Host/HostBackend.h"

namespace
{
constexpr int g_iMaxDevices = 16;  // clients know no more

/// Cores that this process may run on.
int CountCores()
{
    cpu_set_t aSet;
    if (sched_getaffinity(0, sizeof(aSet), &aSet) == 0) return std::max(1, CPU_COUNT(&aSet));
    return std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
}

/// Best first.
std::vector<const HostKernels*> GetUsable()
{
    std::vector<const HostKernels*> vUsable;
#ifdef TALVEN_HOST_X86
    __builtin_cpu_init();
    const bool bAvx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
    if (bAvx2 && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
        __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl"))
        vUsable.push_back(&Avx512::g_aKernels);
    if (bAvx2) vUsable.push_back(&Avx2::g_aKernels);
#endif
    vUsable.push_back(&Baseline::g_aKernels);
    return vUsable;
}
}  // namespace

std::vector<std::string> GetHostInstructionSets()
{
    std::vector<std::string> vNames;
    for (const HostKernels* pKernels : GetUsable()) vNames.emplace_back(pKernels->pcName);
    return vNames;
}

std::unique_ptr<CBackend> MakeHostBackend(const std::string& strInstructionSet, int iDevices,
                                          int iMaxRows)
{
    const int iCores = CountCores();
    const int iCount = iDevices > 0 ? iDevices : std::min(iCores, g_iMaxDevices);
    const int iTeam = iDevices > 0 ? 1 : iCores / iCount;
    for (const HostKernels* pKernels : GetUsable())
        if (strInstructionSet.empty() || strInstructionSet == pKernels->pcName)
            return std::make_unique<CHostBackend>(*pKernels, iCount, iTeam, iMaxRows);
    return nullptr;
}
