#pragma once

#include <array>
#include <map>
#include <memory>
#include <vector>

#include "tests/softcuda/SoftCuda.h"

namespace SoftCuda
{
struct Record;

/// One device. One thread at a time uses it, so nothing is locked.
struct Device
{
    std::map<const char*, std::size_t> aMemory;  // linear memory: begin and bytes
    std::vector<CUstream_st*> vpStreams;
    std::size_t tUsed = 0;
    cudaError_t eSticky = cudaSuccess;  // what broke the device: nothing runs any more
    bool bRunningOthers = false;
    bool bAsked = false;  // by cudaEventQuery, since it last did something

    /// Whether all the bytes lie in one piece of linear memory.
    bool Holds(const void* pvFirst, std::size_t tBytes) const;

    /// What a stream was given, until a place in it or (null) to its end.
    void Run(CUstream_st& rStream, const Record* pUntil = nullptr);
    void WaitFor(const std::shared_ptr<Record>& pRecord);  ///< null: nothing to wait for
    void Synchronize();
};
inline std::array<Device, 16> g_aDevices;

Device& Current();  ///< the calling thread's device
/// What is counted while the program holds it. That orders nothing between threads.
struct Counted
{
    Counted() { g_iHeld.fetch_add(1, std::memory_order_relaxed); }
    ~Counted() { g_iHeld.fetch_sub(1, std::memory_order_relaxed); }
};
/// What stops a call before it begins: a failure that a test asked for, a broken device.
cudaError_t Begin(const char* pcCall);
/// Ends the program: a kernel has done what none may.
[[noreturn]] void Trap(const char* pcReason);

/// A call that works on the current device, which may break it.
template <class F>
cudaError_t Call(const char* pcCall, F fWork)
{
    const cudaError_t eError = Begin(pcCall);
    if (eError != cudaSuccess) return eError;
    fWork(Current());
    return Current().eSticky;
}
/// A call that leaves work in a stream of the current device; a broken one does only what it must.
cudaError_t Enqueue(const char* pcCall, cudaStream_t pStream, std::function<void()> fRun,
                    bool bAlways = false);
}  // namespace SoftCuda
