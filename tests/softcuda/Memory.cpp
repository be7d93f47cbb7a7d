#include <limits>

#include "tests/softcuda/Call.h"

// Allocation.

using namespace SoftCuda;

cudaError_t cudaMalloc(void** devPtr, std::size_t size)
{
    return OnDevice(__func__, Current(),
                    [&](CDevice& rDevice)
                    {
                        *devPtr = size > 0 ? rDevice.Allocate(size) : nullptr;
                        return *devPtr || size == 0 ? cudaSuccess : cudaErrorMemoryAllocation;
                    });
}

cudaError_t cudaMallocPitch(void** devPtr, std::size_t* pitch, std::size_t width,
                            std::size_t height)
{
    return OnDevice(__func__, Current(),
                    [&](CDevice& rDevice)
                    {
                        if (width == 0 || height == 0 ||
                            width > std::numeric_limits<std::size_t>::max() / height / 2)
                            return cudaErrorInvalidValue;
                        const std::size_t tPitch = (width + 511) / 512 * 512;
                        *devPtr = rDevice.Allocate(tPitch * height);
                        if (!*devPtr) return cudaErrorMemoryAllocation;
                        *pitch = tPitch;
                        return cudaSuccess;
                    });
}

cudaError_t cudaFree(void* devPtr)
{
    CDevice* pOwner = devPtr ? OwnerOf(devPtr) : nullptr;
    return OnDevice(
        __func__, pOwner ? pOwner : Current(),
        [&](CDevice& rDevice)
        { return !devPtr || rDevice.Free(devPtr) ? cudaSuccess : cudaErrorInvalidValue; },
        EBroken::eRelease);
}

cudaError_t cudaHostAlloc(void** pHost, std::size_t size, unsigned int flags)
{
    return OnDevice(__func__, Current(),
                    [&](CDevice& rDevice)
                    {
                        if (size == 0 || flags > cudaHostAllocPortable)
                            return cudaErrorInvalidValue;
                        *pHost = Sys().aPinned.Allocate(size, &rDevice);
                        return cudaSuccess;
                    });
}

cudaError_t cudaMallocHost(void** ptr, std::size_t size)
{
    const cudaError_t eError = Begin(__func__);
    return eError == cudaSuccess ? cudaHostAlloc(ptr, size, 0) : Note(eError);
}

cudaError_t cudaFreeHost(void* ptr)
{
    CDevice* pOwner = ptr ? Sys().aPinned.FindOwner(ptr) : Current();
    if (!pOwner) return Note(cudaErrorInvalidValue);
    return OnDevice(
        __func__, pOwner,
        [&](CDevice& rDevice)
        {
            rDevice.Synchronize();
            if (ptr) Sys().aPinned.Free(ptr);
            return cudaSuccess;
        },
        EBroken::eRelease);
}
