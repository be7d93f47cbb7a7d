#include "tests/softcuda/System.h"

#include <algorithm>
#include <cstdlib>

namespace SoftCuda
{
void CHandles::Add(const void* pvHandle, CDevice* pDevice)
{
    std::lock_guard aLock(m_aMutex);
    m_aOwners[pvHandle] = pDevice;
}

void CHandles::Remove(const void* pvHandle)
{
    std::lock_guard aLock(m_aMutex);
    m_aOwners.erase(pvHandle);
}

CDevice* CHandles::Find(const void* pvHandle) const
{
    std::shared_lock aLock(m_aMutex);
    const auto iFound = m_aOwners.find(pvHandle);
    return iFound == m_aOwners.end() ? nullptr : iFound->second;
}

void* CPinned::Allocate(std::size_t tBytes, CDevice* pDevice)
{
    void* pvMemory = NewMemory(tBytes);
    std::lock_guard aLock(m_aMutex);
    m_aBlocks[reinterpret_cast<std::uintptr_t>(pvMemory)] = {tBytes, pDevice};
    return pvMemory;
}

bool CPinned::Free(void* pvMemory)
{
    std::lock_guard aLock(m_aMutex);
    if (m_aBlocks.erase(reinterpret_cast<std::uintptr_t>(pvMemory)) == 0) return false;
    std::free(pvMemory);
    return true;
}

CDevice* CPinned::FindOwner(const void* pvMemory) const
{
    std::shared_lock aLock(m_aMutex);
    const auto iFound = m_aBlocks.find(reinterpret_cast<std::uintptr_t>(pvMemory));
    return iFound == m_aBlocks.end() ? nullptr : iFound->second.pDevice;
}

bool CPinned::Holds(const void* pvFirst, std::size_t tBytes) const
{
    const auto uFirst = reinterpret_cast<std::uintptr_t>(pvFirst);
    std::shared_lock aLock(m_aMutex);
    auto iNext = m_aBlocks.upper_bound(uFirst);
    if (iNext == m_aBlocks.begin()) return false;
    --iNext;
    return uFirst + tBytes <= iNext->first + iNext->second.tBytes;
}

int CPinned::GetCount() const
{
    std::shared_lock aLock(m_aMutex);
    return static_cast<int>(m_aBlocks.size());
}

void CPinned::FreeAll()
{
    std::lock_guard aLock(m_aMutex);
    for (const auto& [uBegin, rBlock] : m_aBlocks) std::free(reinterpret_cast<void*>(uBegin));
    m_aBlocks.clear();
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
    for (int i = 0; i < iMaxDevices; ++i) aDevices[i].m_iDevice = i;
    SetFirstSettings();
}

void System::SetFirstSettings()
{
    iDevices = 2;
    for (CDevice& rDevice : aDevices) rDevice.m_tMemory = std::size_t(1) << 30;
    eOrder = EOrder::eLazy;
}

System& Sys()
{
    static System s_aSystem;
    return s_aSystem;
}

void SetDevices(int iCount)
{
    Sys().iDevices = std::min(iCount, System::iMaxDevices);
}

void SetMemory(std::size_t tBytes, int iDevice)
{
    for (CDevice& rDevice : Sys().aDevices)
        if (iDevice < 0 || iDevice == rDevice.m_iDevice) rDevice.m_tMemory = tBytes;
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
    LiveObjects aLive;
    for (CDevice& rDevice : Sys().aDevices)
    {
        std::lock_guard aLock(rDevice.GetMutex());
        rDevice.Count(aLive);
    }
    aLive.iPinned = Sys().aPinned.GetCount();
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
    Sys().aPinned.FreeAll();
    Sys().aFailures.Clear();
    Sys().SetFirstSettings();
    cudaGetLastError();  // the calling thread's
}
}  // namespace SoftCuda
