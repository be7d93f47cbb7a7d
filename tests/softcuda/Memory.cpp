#include <limits>

#include "tests/softcuda/Call.h"

// Allocation.

using namespace SoftCuda;

cudaError_t cudaMalloc(void** devPtr, std::size_t size)
{
    const CCall aCall(__func__, Current());
    if (aCall.IsRefused()) return aCall.End();
    *devPtr = size > 0 ? aCall->Allocate(size) : nullptr;
    return aCall.End(*devPtr || size == 0 ? cudaSuccess : cudaErrorMemoryAllocation);
}

cudaError_t cudaMallocPitch(void** devPtr, std::size_t* pitch, std::size_t width,
                            std::size_t height)
{
    const CCall aCall(__func__, Current());
    if (aCall.IsRefused()) return aCall.End();
    if (width == 0 || height == 0 || width > std::numeric_limits<std::size_t>::max() / height / 2)
        return aCall.End(cudaErrorInvalidValue);
    *pitch = (width + 511) / 512 * 512;
    *devPtr = aCall->Allocate(*pitch * height);
    return aCall.End(*devPtr ? cudaSuccess : cudaErrorMemoryAllocation);
}

cudaError_t cudaFree(void* devPtr)
{
    CDevice* pOwner = Sys().aOwners.Find(EKind::eMemory, devPtr);
    const CCall aCall(__func__, pOwner ? pOwner : Current(), true);
    if (aCall.IsRefused() || !devPtr) return aCall.End();
    if (!pOwner) return aCall.End(cudaErrorInvalidValue);
    pOwner->Free(devPtr);
    return aCall.End();
}

cudaError_t cudaHostAlloc(void** pHost, std::size_t size, unsigned int flags)
{
    const CCall aCall(__func__, Current());
    if (aCall.IsRefused()) return aCall.End();
    if (size == 0 || flags > cudaHostAllocPortable) return aCall.End(cudaErrorInvalidValue);
    *pHost = aCall->AllocatePinned(size);
    return aCall.End();
}

cudaError_t cudaMallocHost(void** ptr, std::size_t size)
{
    const cudaError_t eError = Begin(__func__);
    return eError == cudaSuccess ? cudaHostAlloc(ptr, size, 0) : Note(eError);
}

cudaError_t cudaFreeHost(void* ptr)
{
    CDevice* pOwner = Sys().aOwners.Find(EKind::ePinned, ptr);
    const CCall aCall(__func__, pOwner ? pOwner : Current(), true);
    if (aCall.IsRefused() || !ptr) return aCall.End();
    if (!pOwner) return aCall.End(cudaErrorInvalidValue);
    pOwner->FreePinned(ptr);
    return aCall.End();
}
