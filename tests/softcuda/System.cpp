#include "tests/softcuda/System.h"

#include <algorithm>

namespace SoftCuda
{
namespace
{
std::uintptr_t Number(const void* pv)
{
    return reinterpret_cast<std::uintptr_t>(pv);
}
}  // namespace

void COwners::Add(const Owned& rOwned)
{
    std::lock_guard aLock(m_aMutex);
    m_aOwned[Number(rOwned.pContent.get())] = rOwned;
}

void COwners::Remove(const void* pvBegin)
{
    std::lock_guard aLock(m_aMutex);
    m_aOwned.erase(Number(pvBegin));
}

void COwners::RemoveAll(const CDevice* pDevice)
{
    std::lock_guard aLock(m_aMutex);
    std::erase_if(m_aOwned, [=](const auto& rEntry) { return rEntry.second.pDevice == pDevice; });
}

CDevice* COwners::Find(EKind eKind, const void* pvBegin, std::size_t* ptBytes) const
{
    std::shared_lock aLock(m_aMutex);
    const auto iFound = m_aOwned.find(Number(pvBegin));
    if (iFound == m_aOwned.end() || iFound->second.eKind != eKind) return nullptr;
    if (ptBytes) *ptBytes = iFound->second.tBytes;
    return iFound->second.pDevice;
}

CDevice* COwners::FindAround(EKind eKind, const void* pvFirst, std::size_t tBytes) const
{
    std::shared_lock aLock(m_aMutex);
    auto iNext = m_aOwned.upper_bound(Number(pvFirst));
    if (iNext == m_aOwned.begin()) return nullptr;
    const auto& [uBegin, rOwned] = *--iNext;
    const std::size_t tOffset = Number(pvFirst) - uBegin;
    const bool bWithin = tOffset < rOwned.tBytes && tBytes <= rOwned.tBytes - tOffset;
    return bWithin && rOwned.eKind == eKind ? rOwned.pDevice : nullptr;
}

LiveObjects COwners::Count() const
{
    std::shared_lock aLock(m_aMutex);
    LiveObjects aLive{static_cast<int>(m_aOwned.size()), 0};
    for (const auto& [uBegin, rOwned] : m_aOwned) aLive.iEvents += rOwned.eKind == EKind::eEvent;
    return aLive;
}

void CFailures::Add(const std::string& strCall, cudaError_t eError, int iAfter)
{
    std::lock_guard aLock(m_aMutex);
    m_vFailures.push_back({strCall, eError, iAfter});
    m_bAny = true;
}

cudaError_t CFailures::Take(const char* pcCall)
{
    if (!m_bAny) return cudaSuccess;
    std::lock_guard aLock(m_aMutex);
    cudaError_t eError = cudaSuccess;
    for (Failure& rFailure : m_vFailures)
        if (rFailure.strCall == pcCall && rFailure.iLeft-- == 0) eError = rFailure.eError;
    std::erase_if(m_vFailures, [](const Failure& rFailure) { return rFailure.iLeft < 0; });
    m_bAny = !m_vFailures.empty();
    return eError;
}

void CFailures::Clear()
{
    std::lock_guard aLock(m_aMutex);
    m_vFailures.clear();
    m_bAny = false;
}

System::System()
{
    SetFirstSettings();
}

void System::SetFirstSettings()
{
    iDevices = 2;
    for (CDevice& rDevice : aDevices)
    {
        rDevice.m_tMemory = std::size_t(1) << 30;
        rDevice.m_iCapability = 90;
    }
    eOrder = EOrder::eLazy;
}

System& Sys()
{
    static System s_aSystem;
    return s_aSystem;
}

void SetDevices(int iCount)
{
    Sys().iDevices = std::min(iCount, static_cast<int>(Sys().aDevices.size()));
}

void SetMemory(std::size_t tBytes, int iDevice)
{
    for (CDevice& rDevice : Sys().aDevices)
        if (iDevice < 0 || &rDevice == &Sys().aDevices[iDevice]) rDevice.m_tMemory = tBytes;
}

void SetCapability(int iTenths, int iDevice)
{
    Sys().aDevices[iDevice].m_iCapability = iTenths;
}

void SetOrder(EOrder eOrder)
{
    Sys().eOrder = eOrder;
}

void FailNext(const char* pcCall, cudaError_t eError, int iAfter)
{
    Sys().aFailures.Add(pcCall, eError, iAfter);
}

LiveObjects GetLiveObjects()
{
    LiveObjects aLive = Sys().aOwners.Count();
    for (const CDevice& rDevice : Sys().aDevices) aLive.iTotal += rDevice.CountObjects();
    return aLive;
}

int GetLaunches()
{
    int iLaunches = 0;
    for (const CDevice& rDevice : Sys().aDevices) iLaunches += rDevice.m_iLaunches;
    return iLaunches;
}

std::size_t GetMemoryPeak(int iDevice)
{
    return Sys().aDevices[iDevice].GetPeak();
}

void Reset()
{
    for (CDevice& rDevice : Sys().aDevices)
    {
        std::lock_guard aLock(rDevice.GetMutex());
        rDevice.Forget();
    }
    Sys().aFailures.Clear();
    Sys().SetFirstSettings();
    cudaGetLastError();  // the calling thread's
    cudaSetDevice(0);
}
}  // namespace SoftCuda
