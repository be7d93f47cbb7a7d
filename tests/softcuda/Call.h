#pragma once

#include <mutex>

#include "tests/softcuda/System.h"

namespace SoftCuda
{
/// Remembers a failure as the calling thread's last error.
cudaError_t Note(cudaError_t eError);
/// What stops a call before it begins: no driver, no device, a failure that a test asked for.
cudaError_t Begin(const char* pcCall);
/// The calling thread's device; for calls that Begin() let through.
CDevice* Current();
CDevice* OwnerOf(cudaStream_t pStream);  ///< of the default stream: the current device
CDevice* OwnerOf(cudaEvent_t pEvent);
CDevice* OwnerOf(cudaArray_t pArray);
bool IsSticky(cudaError_t eError);

/// The device whose kernel the calling thread runs.
CDevice* RunningDevice();
/// Ends the launch: the device keeps cudaErrorLaunchFailure, the reason goes to stderr.
[[gnu::format(printf, 1, 2)]] void Trap(const char* pcFormat, ...);

/// A call that works on one device, under its lock.
class CCall
{
public:
    /// \param pDevice   null: the caller's handle is bad
    /// \param bRelease  the call frees something: it does so on a broken device too
    CCall(const char* pcCall, CDevice* pDevice, bool bRelease = false);
    bool IsRefused() const { return m_bRefused; }
    CDevice& operator*() const { return *m_pDevice; }
    CDevice* operator->() const { return m_pDevice; }
    /// What the call returns: why it was refused, else the device's lasting error, else eError.
    cudaError_t End(cudaError_t eError = cudaSuccess) const;

private:
    CDevice* m_pDevice;
    std::unique_lock<std::mutex> m_aLock;
    cudaError_t m_eRefusal;
    bool m_bRefused;
};
}  // namespace SoftCuda
