#include "tests/softcuda/Device.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "tests/softcuda/System.h"

namespace SoftCuda
{
namespace
{
/// Memory that no program can take for initialised; free() ends it.
unsigned char* NewMemory(std::size_t tBytes)
{
    void* pvMemory = nullptr;
    if (posix_memalign(&pvMemory, 512, tBytes) != 0) throw std::bad_alloc();
    std::memset(pvMemory, 0xFF, tBytes);
    return static_cast<unsigned char*>(pvMemory);
}
}  // namespace

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
    Sys().aOwners.Add(EKind::eMemory, puMemory, tBytes, this);
    return puMemory;
}

void CDevice::Free(void* pvMemory)
{
    Synchronize();
    m_tUsed -= Sys().aOwners.Remove(pvMemory);
    std::free(pvMemory);
}

bool CDevice::Holds(const void* pvFirst, std::size_t tBytes) const
{
    return Sys().aOwners.FindAround(EKind::eMemory, pvFirst, tBytes) == this;
}

void* CDevice::AllocatePinned(std::size_t tBytes)
{
    void* pvMemory = NewMemory(tBytes);
    Sys().aOwners.Add(EKind::ePinned, pvMemory, tBytes, this);
    return pvMemory;
}

void CDevice::FreePinned(void* pvMemory)
{
    Synchronize();
    Sys().aOwners.Remove(pvMemory);
    std::free(pvMemory);
}

cudaArray* CDevice::AddArray(const cudaArray& rShape)
{
    if (!mTake(rShape.GetBytes())) return nullptr;
    m_vArrays.push_back(std::make_unique<cudaArray>(rShape));
    cudaArray* pArray = m_vArrays.back().get();
    pArray->puTexels = NewMemory(pArray->GetBytes());
    Sys().aOwners.Add(EKind::eArray, pArray, 1, this);
    return pArray;
}

void CDevice::FreeArray(cudaArray* pArray)
{
    Synchronize();
    for (Object& rObject : m_vObjects)
        if (rObject.pArray == pArray) rObject.pArray = nullptr;
    m_tUsed -= pArray->GetBytes();
    std::free(pArray->puTexels);
    Sys().aOwners.Remove(pArray);
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
    const auto Held = [this](EKind eKind)
    { return static_cast<int>(Sys().aOwners.GetAll(eKind, this).size()); };
    rLive.iAllocations += Held(EKind::eMemory);
    rLive.iPinned += Held(EKind::ePinned);
    rLive.iArrays += Held(EKind::eArray);
    rLive.iStreams += Held(EKind::eStream);
    rLive.iEvents += Held(EKind::eEvent);
    for (const Object& rObject : m_vObjects)
        if (rObject.bLive) ++(rObject.bTexture ? rLive.iTextures : rLive.iSurfaces);
}

void CDevice::FreeAll()
{
    Synchronize();
    m_vObjects.assign(m_vObjects.size(), {});  // old handles stay dead
    while (!m_vArrays.empty()) FreeArray(m_vArrays.back().get());
    while (!m_vEvents.empty()) DestroyEvent(m_vEvents.back().get());
    while (m_vStreams.size() > 1) DestroyStream(m_vStreams.back().get());
    for (void* pvMemory : Sys().aOwners.GetAll(EKind::eMemory, this)) Free(pvMemory);
    for (void* pvMemory : Sys().aOwners.GetAll(EKind::ePinned, this)) FreePinned(pvMemory);
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
