#pragma once

#include <mutex>

#include "tests/softcuda/System.h"

namespace SoftCuda
{
/// Remembers a failure as the calling thread's last error.
cudaError_t Note(cudaError_t eError);
/// What stops a call before it begins: no driver, no device, a failure that a test asked for.
cudaError_t Begin(const char* pcCall);
CDevice* Current();  ///< the calling thread's device; for calls that Begin() let through
CDevice* OwnerOf(const void* pvHandle);
CDevice* OwnerOfStream(cudaStream_t pStream);  ///< of the default stream: the current device
bool IsSticky(cudaError_t eError);

enum class EBroken
{
    eRefuse,
    eRelease  ///< the call frees something, also on a broken device, and reports its error
};

/// The frame of a call that works on one device: Body(device) under its lock.
template <class Body>
cudaError_t OnDevice(const char* pcCall, CDevice* pDevice, Body aBody,
                     EBroken eBroken = EBroken::eRefuse)
{
    cudaError_t eError = Begin(pcCall);
    if (eError == cudaSuccess && !pDevice) eError = cudaErrorInvalidResourceHandle;
    if (pDevice && IsSticky(eError)) pDevice->Break(eError);
    if (eError != cudaSuccess) return Note(eError);
    std::lock_guard aLock(pDevice->GetMutex());
    if (!pDevice->IsBroken() || eBroken == EBroken::eRelease) eError = aBody(*pDevice);
    return Note(pDevice->IsBroken() ? pDevice->GetSticky() : eError);
}
}  // namespace SoftCuda
