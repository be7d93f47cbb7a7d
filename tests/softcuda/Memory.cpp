#include <algorithm>
#include <cstring>
#include <new>
#include <span>

#include "tests/softcuda/Runtime.h"

// Linear memory, and copies of regions of it.

namespace SoftCuda
{
cudaError_t Take(const char* pcCall, std::size_t tBytes)
{
    const cudaError_t eError = Begin(pcCall);
    if (eError != cudaSuccess) return eError;
    Device& rDevice = Current();
    if (rDevice.tUsed + tBytes > g_aSettings.tMemory) return cudaErrorMemoryAllocation;
    rDevice.tUsed += tBytes;
    if (rDevice.tUsed > g_tPeak) g_tPeak = rDevice.tUsed;
    return cudaSuccess;
}

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
    const cudaError_t eError = Take(pcCall, tBytes);
    if (eError != cudaSuccess) return eError;
    char* const pcBegin = NewMemory(tBytes + g_tGuard);
    Current().aMemory[pcBegin] = tBytes;
    *ppvBegin = pcBegin;
    return cudaSuccess;
}
}  // namespace
}  // namespace SoftCuda

using namespace SoftCuda;

cudaError_t cudaMalloc(void** devPtr, std::size_t size)
{
    return Allocate(__func__, devPtr, size);
}

cudaError_t cudaMallocPitch(void** devPtr, std::size_t* pitch, std::size_t width,
                            std::size_t height)
{
    *pitch = (width + 511) / 512 * 512;
    return Allocate(__func__, devPtr, *pitch * height);
}

cudaError_t cudaFree(void* devPtr)
{
    Device& rDevice = Current();
    rDevice.Synchronize();
    const auto iMemory = rDevice.aMemory.find(static_cast<char*>(devPtr));
    if (iMemory == rDevice.aMemory.end()) return cudaErrorInvalidValue;
    const std::span acGuard(iMemory->first + iMemory->second, g_tGuard);
    if (std::size_t(std::ranges::count(acGuard, '\xFF')) != g_tGuard)
        Trap("a kernel has written beyond linear memory");
    rDevice.tUsed -= iMemory->second;
    rDevice.aMemory.erase(iMemory);
    DeleteMemory(devPtr);
    return cudaSuccess;
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

cudaError_t cudaMemset2DAsync(void* devPtr, std::size_t pitch, int value, std::size_t width,
                              std::size_t height, cudaStream_t stream)
{
    if (!Current().Holds(devPtr, (height - 1) * pitch + width)) return cudaErrorInvalidValue;
    const auto Run = [=]
    {
        for (std::size_t y = 0; y < height; ++y)
            std::memset(static_cast<char*>(devPtr) + y * pitch, value, width);
    };
    return Enqueue(__func__, stream, Run);
}

cudaError_t cudaMemcpyAsync(void* dst, const void* src, std::size_t count, cudaMemcpyKind kind,
                            cudaStream_t stream)
{
    const cudaError_t eError = Begin(__func__);
    if (eError != cudaSuccess) return eError;
    return cudaMemcpy2DAsync(dst, count, src, count, count, 1, kind, stream);
}

/// The bytes are taken when the copy runs, from pageable memory too.
cudaError_t cudaMemcpy2DAsync(void* dst, std::size_t dpitch, const void* src, std::size_t spitch,
                              std::size_t width, std::size_t height, cudaMemcpyKind kind,
                              cudaStream_t stream)
{
    const Device& rDevice = Current();
    if (rDevice.Holds(dst, (height - 1) * dpitch + width) != (kind != cudaMemcpyDeviceToHost) ||
        rDevice.Holds(src, (height - 1) * spitch + width) != (kind != cudaMemcpyHostToDevice))
        return cudaErrorInvalidValue;
    const auto Run = [=]
    {
        for (std::size_t y = 0; y < height; ++y)
            std::memcpy(static_cast<char*>(dst) + y * dpitch,
                        static_cast<const char*>(src) + y * spitch, width);
    };
    return Enqueue(__func__, stream, Run);
}
