#pragma once

#include <type_traits>

#include "tests/softcuda/System.h"

namespace SoftCuda
{
/// Remembers a failure as the calling thread's last error.
cudaError_t Note(cudaError_t eError);
/// What stops a call before it begins: no driver, no device, a failure that a test asked for. One
/// that lasts breaks pDevice, which may be null.
cudaError_t Begin(const char* pcCall, CDevice* pDevice = nullptr);
CDevice* Current();                      ///< the calling thread's device, where there is any
CDevice* OwnerOf(cudaStream_t pStream);  ///< of the default stream: the current device
CDevice* OwnerOf(cudaEvent_t pEvent);
CDevice* OwnerOf(cudaArray_t pArray);

/// The device whose kernel the calling thread runs.
CDevice* RunningDevice();
/// Ends the launch: the device keeps cudaErrorLaunchFailure, the reason goes to stderr.
[[gnu::format(printf, 1, 2)]] void Trap(const char* pcFormat, ...);

/// A call of the program that works on one device, under its lock.
/// \param pDevice   null: the program's handle is bad
/// \param fWork     takes the device, returns cudaError_t or nothing
/// \param bRelease  the call frees something: it does so on a broken device too
template <class F>
cudaError_t Call(const char* pcCall, CDevice* pDevice, F fWork, bool bRelease = false)
{
    cudaError_t eError = Begin(pcCall, pDevice);
    if (eError == cudaSuccess && !pDevice) eError = cudaErrorInvalidResourceHandle;
    if (eError != cudaSuccess) return Note(eError);
    const std::lock_guard aLock(pDevice->GetMutex());
    if (bRelease || !pDevice->IsBroken())
    {
        if constexpr (std::is_void_v<std::invoke_result_t<F, CDevice&>>)
            fWork(*pDevice);
        else
            eError = fWork(*pDevice);
    }
    return Note(pDevice->IsBroken() ? pDevice->GetSticky() : eError);
}
}  // namespace SoftCuda
