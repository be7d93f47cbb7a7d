#include <limits>

#include "tests/softcuda/Call.h"

// Allocation.

using namespace SoftCuda;

namespace
{
cudaError_t Free(const char* pcCall, EKind eKind, const void* pvBegin)
{
    std::size_t tBytes = 0;
    CDevice* const pOwner = Sys().aOwners.Find(eKind, pvBegin, &tBytes);
    const auto Work = [&](CDevice& rDevice)
    {
        if (!pOwner) return pvBegin ? cudaErrorInvalidValue : cudaSuccess;
        rDevice.Free(pvBegin, eKind == EKind::eMemory ? tBytes : 0);
        return cudaSuccess;
    };
    return Call(pcCall, pOwner ? pOwner : Current(), Work, true);
}
}  // namespace

cudaError_t cudaMalloc(void** devPtr, std::size_t size)
{
    const auto Work = [&](CDevice& rDevice)
    {
        *devPtr = size > 0 ? rDevice.Allocate(EKind::eMemory, size) : nullptr;
        return *devPtr || size == 0 ? cudaSuccess : cudaErrorMemoryAllocation;
    };
    return Call(__func__, Current(), Work);
}

cudaError_t cudaMallocPitch(void** devPtr, std::size_t* pitch, std::size_t width,
                            std::size_t height)
{
    const auto Work = [&](CDevice& rDevice)
    {
        constexpr std::size_t tMost = std::numeric_limits<std::size_t>::max() / 2;
        if (width == 0 || height == 0 || width > tMost / height) return cudaErrorInvalidValue;
        *pitch = (width + 511) / 512 * 512;
        *devPtr = rDevice.Allocate(EKind::eMemory, *pitch * height);
        return *devPtr ? cudaSuccess : cudaErrorMemoryAllocation;
    };
    return Call(__func__, Current(), Work);
}

cudaError_t cudaMallocHost(void** ptr, std::size_t size)
{
    const auto Work = [=](CDevice& rDevice) { *ptr = rDevice.Allocate(EKind::ePinned, size); };
    return Call(__func__, Current(), Work);
}

cudaError_t cudaFree(void* devPtr)
{
    return Free(__func__, EKind::eMemory, devPtr);
}

cudaError_t cudaFreeHost(void* ptr)
{
    return Free(__func__, EKind::ePinned, ptr);
}
