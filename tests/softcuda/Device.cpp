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
/// Memory that no program can take for initialised.
std::shared_ptr<void> NewMemory(std::size_t tBytes)
{
    void* pvMemory = nullptr;
    if (posix_memalign(&pvMemory, 512, tBytes) != 0) throw std::bad_alloc();
    return {std::memset(pvMemory, 0xFF, tBytes), std::free};
}
}  // namespace

CDevice::CDevice()
{
    m_vStreams.push_back(std::make_shared<CUstream_st>());
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

void* CDevice::Allocate(EKind eKind, std::size_t tBytes)
{
    if (eKind == EKind::eMemory && !mTake(tBytes)) return nullptr;
    const std::shared_ptr<void> pMemory = NewMemory(tBytes);
    Sys().aOwners.Add({eKind, tBytes, this, pMemory});
    return pMemory.get();
}

bool CDevice::Holds(const void* pvFirst, std::size_t tBytes) const
{
    return Sys().aOwners.FindAround(EKind::eMemory, pvFirst, tBytes) == this;
}

cudaArray_t CDevice::AddArray(const cudaArray& rShape)
{
    const auto [tX, tY, tZ] = rShape.aSize;
    const std::size_t tBytes = rShape.tElement * tX * tY * tZ;
    if (!mTake(tBytes)) return nullptr;
    auto pArray = std::make_shared<cudaArray>(rShape);
    pArray->vuTexels.assign(tBytes, 0xFF);
    Sys().aOwners.Add({EKind::eArray, 1, this, pArray});
    return pArray.get();
}

void CDevice::Free(const void* pvBegin, std::size_t tBytes)
{
    Synchronize();
    for (Object& rObject : m_vObjects)
        if (rObject.pArray == pvBegin) rObject.pArray = nullptr;
    m_tUsed -= tBytes;
    Sys().aOwners.Remove(pvBegin);
}

unsigned long long CDevice::AddObject(const Object& rObject)
{
    m_vObjects.push_back(rObject);
    return (this - Sys().aDevices.data() + 1ULL) << 32 | m_vObjects.size();
}

Object* CDevice::FindObject(unsigned long long uHandle, bool bTexture)
{
    const unsigned long long uIndex = (uHandle & 0xFFFFFFFF) - 1;
    if (uHandle >> 32 != this - Sys().aDevices.data() + 1ULL || uIndex >= m_vObjects.size())
        return nullptr;
    Object& rObject = m_vObjects[uIndex];
    return rObject.bLive && rObject.bTexture == bTexture ? &rObject : nullptr;
}

int CDevice::CountObjects() const
{
    return static_cast<int>(std::ranges::count(m_vObjects, true, &Object::bLive));
}

void CDevice::Forget()
{
    Break(cudaErrorUnknown);  // what is queued may point to memory that is gone: it never runs
    Synchronize();
    m_vObjects.assign(m_vObjects.size(), {});  // old handles stay dead
    m_vStreams.resize(1);
    Sys().aOwners.RemoveAll(this);
    m_tUsed = m_tPeak = 0;
    m_iLaunches = 0;
    m_eSticky = cudaSuccess;
}
}  // namespace SoftCuda
