#pragma once

#include <array>
#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <vector>

#include "tests/softcuda/SoftCuda.h"

namespace SoftCuda
{
/// A place in a stream: what an event remembers of its last cudaEventRecord.
struct Record
{
    CUstream_st* pStream = nullptr;  // valid while !bDone
    bool bDone = false;
    std::chrono::steady_clock::time_point aTime;
};
}  // namespace SoftCuda

struct CUstream_st
{
    std::deque<std::function<void()>> aQueue;
};
struct CUevent_st
{
    bool bTimed;
    std::shared_ptr<SoftCuda::Record> pRecord;  // null: never recorded
};

namespace SoftCuda
{
/// One device. One thread at a time uses it, so nothing is locked.
struct Device
{
    std::map<const char*, std::size_t> aMemory;  // linear memory: begin and bytes
    std::vector<CUstream_st*> vpStreams;
    int iOthers = 0;  // pinned blocks, events, arrays, objects that the program holds
    int iLaunches = 0;
    std::size_t tUsed = 0, tPeak = 0;
    cudaError_t eSticky = cudaSuccess;  // what broke the device: nothing runs any more
    bool bRunningOthers = false;

    /// Whether all the bytes lie in one piece of linear memory.
    bool Holds(const void* pvFirst, std::size_t tBytes) const;

    /// What a stream was given, until a place in it or (null) to its end.
    void Run(CUstream_st& rStream, const Record* pUntil = nullptr);
    void WaitFor(const std::shared_ptr<Record>& pRecord);  ///< null: nothing to wait for
    void Synchronize();
};
inline std::array<Device, 16> g_aDevices;

Device& Current();  ///< the calling thread's device
/// What stops a call before it begins: a failure that a test asked for, a broken device.
cudaError_t Begin(const char* pcCall);
/// Ends the launch that runs on this thread and breaks its device; the reason goes to stderr.
void Trap(const char* pcReason);

/// The same, and bytes of the current device for the call, which may not be there.
cudaError_t Take(const char* pcCall, std::size_t tBytes);
/// A call that works on the current device, which may break it.
template <class F>
cudaError_t Call(const char* pcCall, F fWork)
{
    const cudaError_t eError = Begin(pcCall);
    if (eError != cudaSuccess) return eError;
    fWork(Current());
    return Current().eSticky;
}
/// A call that leaves work in a stream of the current device.
cudaError_t Enqueue(const char* pcCall, cudaStream_t pStream, std::function<void()> fRun);
}  // namespace SoftCuda
