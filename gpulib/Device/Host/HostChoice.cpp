// Which instruction sets this program has and this machine can run, and how its cores are shared.

#include <algorithm>
#include <bit>

#include "Machine/HostShares.h"
#include "Machine/MachineLimits.h"
#include "gpulib/Device/Host/HostBackend.h"

namespace
{
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

namespace
{
std::unique_ptr<CBackend> Make(const std::string& strInstructionSet, const std::vector<int>& rCores,
                               int iMaxRows)
{
    for (const HostKernels* pKernels : GetUsable())
        if (strInstructionSet.empty() || strInstructionSet == pKernels->pcName)
            return std::make_unique<CHostBackend>(*pKernels, rCores, iMaxRows);
    return nullptr;
}

/// Cores of each device.
std::vector<int> ShareOut(const HostCores& rWanted)
{
    const int iCores = rWanted.iCores > 0 ? rWanted.iCores : talven::CMachineLimits::CountCores();
    const int iDevices = talven::CountHostDevices(iCores);
    const unsigned uiBusy = rWanted.iCores > 0 ? rWanted.uiBusy : 0;
    const int iIdle = std::popcount(uiBusy & ((1u << iDevices) - 1));
    const int iShare = iCores / std::max(iDevices - iIdle, 1);
    std::vector<int> viCores(std::size_t(iDevices), iShare);
    for (int i = 0; i < iDevices; ++i)
        if ((uiBusy >> i & 1) != 0) viCores[std::size_t(i)] = 1;
    return viCores;
}
}  // namespace

std::unique_ptr<CBackend> MakeHostBackend(const HostCores& rCores)
{
    return Make("", ShareOut(rCores), 0);
}

std::unique_ptr<CBackend> MakeHostBackend(const std::string& strInstructionSet, int iDevices,
                                          int iMaxRows)
{
    const std::vector<int> viCores =
        iDevices > 0 ? std::vector<int>(std::size_t(iDevices), 1) : ShareOut({});
    return Make(strInstructionSet, viCores, iMaxRows);
}
