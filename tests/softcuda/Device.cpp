#include "tests/softcuda/Device.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "tests/softcuda/System.h"

namespace SoftCuda
{
unsigned char* NewMemory(std::size_t tBytes)
{
    void* pvMemory = nullptr;
    if (posix_memalign(&pvMemory, 512, tBytes) != 0) throw std::bad_alloc();
    std::memset(pvMemory, 0xFF, tBytes);
    return static_cast<unsigned char*>(pvMemory);
}

CDevice::CDevice()
{
    m_vStreams.push_back(std::make_unique<CUstream_st>());
}

void CDevice::Break(cudaError_t eError)
{
    cudaError_t eNone = cudaSuccess;
    m_eSticky.compare_exchange_strong(eNone, eError);  // the first one stays
}

bool CDevice::mTake(std::size_t tBytes)
{
    if (m_tUsed > m_tMemory || tBytes > m_tMemory - m_tUsed) return false;
    m_tUsed += tBytes;
    m_tPeak = std::max(m_tPeak, m_tUsed);
    return true;
}

unsigned char* CDevice::Allocate(std::size_t tBytes)
{
    if (!mTake(tBytes)) return nullptr;
    unsigned char* puMemory = NewMemory(tBytes);
    m_aAllocations[reinterpret_cast<std::uintptr_t>(puMemory)] = tBytes;
    Sys().aHandles.Add(puMemory, this);
    return puMemory;
}

bool CDevice::Free(void* pvMemory)
{
    const auto iFound = m_aAllocations.find(reinterpret_cast<std::uintptr_t>(pvMemory));
    if (iFound == m_aAllocations.end()) return false;
    Synchronize();
    m_tUsed -= iFound->second;
    m_aAllocations.erase(iFound);
    Sys().aHandles.Remove(pvMemory);
    std::free(pvMemory);
    return true;
}

bool CDevice::Holds(const void* pvFirst, std::size_t tBytes) const
{
    const auto uFirst = reinterpret_cast<std::uintptr_t>(pvFirst);
    auto iNext = m_aAllocations.upper_bound(uFirst);
    if (iNext == m_aAllocations.begin()) return false;
    const auto [uBegin, tSize] = *--iNext;
    return uFirst - uBegin < tSize && tBytes <= tSize - (uFirst - uBegin);
}

cudaArray* CDevice::AddArray(const cudaArray& rShape)
{
    if (!mTake(rShape.GetBytes())) return nullptr;
    m_vArrays.push_back(std::make_unique<cudaArray>(rShape));
    cudaArray* pArray = m_vArrays.back().get();
    pArray->puTexels = NewMemory(pArray->GetBytes());
    Sys().aHandles.Add(pArray, this);
    return pArray;
}

void CDevice::FreeArray(cudaArray* pArray)
{
    Synchronize();
    for (Object& rObject : m_vObjects)
        if (rObject.pArray == pArray) rObject.pArray = nullptr;
    m_tUsed -= pArray->GetBytes();
    std::free(pArray->puTexels);
    Sys().aHandles.Remove(pArray);
    std::erase_if(m_vArrays, [=](const auto& pOther) { return pOther.get() == pArray; });
}

unsigned long long CDevice::AddObject(const Object& rObject)
{
    m_vObjects.push_back(rObject);
    return (m_iDevice + 1ULL) << 32 | m_vObjects.size();
}

Object* CDevice::FindObject(unsigned long long uHandle, bool bTexture)
{
    const unsigned long long uIndex = (uHandle & 0xFFFFFFFF) - 1;
    if (uHandle >> 32 != m_iDevice + 1ULL || uIndex >= m_vObjects.size()) return nullptr;
    Object& rObject = m_vObjects[uIndex];
    return rObject.bLive && rObject.bTexture == bTexture ? &rObject : nullptr;
}

void CDevice::Count(LiveObjects& rLive) const
{
    rLive.iAllocations += m_aAllocations.size();
    rLive.iArrays += m_vArrays.size();
    rLive.iEvents += m_vEvents.size();
    for (const Object& rObject : m_vObjects)
        if (rObject.bLive) ++(rObject.bTexture ? rLive.iTextures : rLive.iSurfaces);
    for (const auto& pStream : m_vStreams)
        if (pStream != m_vStreams[0] && !pStream->bDestroyed) ++rLive.iStreams;
}

void CDevice::FreeAll()
{
    Synchronize();
    m_vObjects.assign(m_vObjects.size(), {});  // old handles stay dead
    while (!m_vArrays.empty()) FreeArray(m_vArrays.back().get());
    while (!m_aAllocations.empty()) Free(reinterpret_cast<void*>(m_aAllocations.begin()->first));
    while (!m_vEvents.empty()) DestroyEvent(m_vEvents.back().get());
    while (m_vStreams.size() > 1) DestroyStream(m_vStreams.back().get());
}

void CDevice::Forget()
{
    Break(cudaErrorUnknown);  // what is queued may point to memory that is gone: it never runs
    FreeAll();
    m_tPeak = 0;
    m_iLaunches = 0;
    m_eSticky = cudaSuccess;
}
}  // namespace SoftCuda
