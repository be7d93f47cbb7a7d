#include <algorithm>
#include <cstring>
#include <new>
#include <span>

#include "tests/softcuda/Runtime.h"

// Linear memory, and copies of regions of it.

namespace SoftCuda
{
bool Device::Holds(const void* pvFirst, std::size_t tBytes) const
{
    const char* const pcFirst = static_cast<const char*>(pvFirst);
    const auto iNext = aMemory.upper_bound(pcFirst);
    return iNext != aMemory.begin() &&
           pcFirst + tBytes <= std::prev(iNext)->first + std::prev(iNext)->second;
}

namespace
{
constexpr std::align_val_t g_eAlign{512};
constexpr std::size_t g_tGuard = 512;  // bytes behind linear memory, which stay as they are

/// Memory that no program can take for initialised: 0xFF bytes are quiet NaNs.
char* NewMemory(std::size_t tBytes)
{
    g_iHeld.fetch_add(1, std::memory_order_relaxed);
    return static_cast<char*>(std::memset(::operator new(tBytes, g_eAlign), 0xFF, tBytes));
}

void DeleteMemory(void* pvBegin)
{
    g_iHeld.fetch_sub(1, std::memory_order_relaxed);
    ::operator delete(pvBegin, g_eAlign);
}

cudaError_t Allocate(const char* pcCall, void** ppvBegin, std::size_t tBytes)
{
    const cudaError_t eError = Begin(pcCall);
    if (eError != cudaSuccess) return eError;
    Device& rDevice = Current();
    const auto DoesFit = [&] { return tBytes <= g_aSettings.tMemory - rDevice.tUsed; };
    if (!DoesFit()) rDevice.Synchronize();  // what was freed in a stream
    if (!DoesFit()) return cudaErrorMemoryAllocation;
    rDevice.tUsed += tBytes;
    g_tPeak = std::max<std::size_t>(g_tPeak, rDevice.tUsed);
    char* const pcBegin = NewMemory(tBytes + g_tGuard);
    rDevice.aMemory[pcBegin] = tBytes;
    *ppvBegin = pcBegin;
    return cudaSuccess;
}

cudaError_t Release(Device& rDevice, void* pvBegin)
{
    const auto iMemory = rDevice.aMemory.find(static_cast<char*>(pvBegin));
    if (iMemory == rDevice.aMemory.end()) return cudaErrorInvalidValue;
    const std::span acGuard(iMemory->first + iMemory->second, g_tGuard);
    if (std::size_t(std::ranges::count(acGuard, '\xFF')) != g_tGuard)
        Trap("a kernel has written beyond linear memory");
    rDevice.tUsed -= iMemory->second;
    rDevice.aMemory.erase(iMemory);
    DeleteMemory(pvBegin);
    return cudaSuccess;
}
}  // namespace
}  // namespace SoftCuda

using namespace SoftCuda;

cudaError_t cudaMalloc(void** devPtr, std::size_t size)
{
    return Allocate(__func__, devPtr, size);
}

cudaError_t cudaMallocAsync(void** devPtr, std::size_t size, cudaStream_t)
{
    return Allocate(__func__, devPtr, size);
}

cudaError_t cudaFree(void* devPtr)
{
    Current().Synchronize();
    return Release(Current(), devPtr);
}

/// Also after an error: a test counts what is held.
cudaError_t cudaFreeAsync(void* devPtr, cudaStream_t stream)
{
    Device& rDevice = Current();
    if (rDevice.eSticky != cudaSuccess) return Release(rDevice, devPtr);
    return Enqueue(
        __func__, stream, [=, &rDevice] { Release(rDevice, devPtr); }, true);
}

cudaError_t cudaDeviceGetDefaultMemPool(cudaMemPool_t*, int)
{
    return Begin(__func__);
}

cudaError_t cudaMemPoolSetAttribute(cudaMemPool_t, int, void*)
{
    return Begin(__func__);
}

cudaError_t cudaMallocHost(void** ptr, std::size_t size)
{
    return Call(__func__, [=](Device&) { *ptr = NewMemory(size); });
}

cudaError_t cudaFreeHost(void* ptr)
{
    Current().Synchronize();
    DeleteMemory(ptr);
    return cudaSuccess;
}

cudaError_t cudaMemsetAsync(void* devPtr, int value, std::size_t count, cudaStream_t stream)
{
    if (!Current().Holds(devPtr, count)) return cudaErrorInvalidValue;
    return Enqueue(__func__, stream, [=] { std::memset(devPtr, value, count); });
}

/// The bytes are taken when the copy runs, from pageable memory too.
cudaError_t cudaMemcpyAsync(void* dst, const void* src, std::size_t count, cudaMemcpyKind kind,
                            cudaStream_t stream)
{
    const Device& rDevice = Current();
    if (rDevice.Holds(dst, count) != (kind != cudaMemcpyDeviceToHost) ||
        rDevice.Holds(src, count) != (kind != cudaMemcpyHostToDevice))
        return cudaErrorInvalidValue;
    return Enqueue(__func__, stream, [=] { std::memcpy(dst, src, count); });
}
