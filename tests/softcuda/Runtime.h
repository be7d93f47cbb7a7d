#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
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
    std::deque<std::function<void()>> aQueue;  // runs on a broken device too
};
struct CUevent_st
{
    unsigned int uiFlags;
    std::shared_ptr<SoftCuda::Record> pRecord;  // null: never recorded
};
struct cudaArray
{
    std::vector<float> vfTexels;  // [layer][y][x]
    cudaExtent aSize;             // 0: it was freed
    unsigned int uiFlags;
};

namespace SoftCuda
{
enum class EKind
{
    eMemory,
    ePinned,
    eArray,
    eStream,
    eEvent
};
/// Something that the program holds by its address.
struct Owned
{
    EKind eKind;
    std::size_t tBytes;  // of the device or pinned
    std::shared_ptr<void> pContent;
};
/// A texture or surface object.
struct Object
{
    std::shared_ptr<cudaArray> pArray;  // null: the object is gone
    bool bTexture = false, bLinear = false;
};

/// One device: memory, streams, objects.
struct Device
{
    std::mutex aMutex;  // of all below but what is atomic
    std::atomic<cudaError_t> eSticky = cudaSuccess;
    std::map<const char*, Owned> aOwned;
    std::vector<CUstream_st*> vpStreams;
    std::vector<Object> vObjects;
    std::size_t tMemory = std::size_t(1) << 30, tUsed = 0, tPeak = 0;
    int iCapability = 90, iLaunches = 0;
    bool bRunningOthers = false;

    void Break(cudaError_t eError);                 ///< the first error stays
    Owned* Find(EKind eKind, const void* pvBegin);  ///< null: no such
    /// Whether one memory of this kind holds all the bytes.
    bool Holds(EKind eKind, const void* pvFirst, std::size_t tBytes);
    bool Take(std::size_t tBytes);  ///< false: the device is full
    template <class T>
    T* Keep(EKind eKind, std::size_t tBytes, std::shared_ptr<T> pContent)
    {
        aOwned[reinterpret_cast<const char*>(pContent.get())] = {eKind, tBytes, pContent};
        return pContent.get();
    }
    cudaError_t Remove(const void* pvBegin);  ///< what it holds

    void RunOne(CUstream_st& rStream);  ///< its queue is not empty
    void RunOthers(const CUstream_st* pStream);
    // Each returns what the device is left with.
    cudaError_t Drain(CUstream_st& rStream);
    cudaError_t RunUntil(const std::shared_ptr<Record>& pRecord);  ///< null: nothing to wait for
    cudaError_t Synchronize();
    void Forget();  ///< frees all, drops the work, takes the errors and counts back
};

inline std::array<Device, 16> g_aDevices;
inline std::atomic<int> g_iDevices = 2;  // of them there are; -1: no driver
inline std::atomic<EOrder> g_eOrder = EOrder::eLazy;

/// Remembers a failure as the calling thread's last error.
cudaError_t Note(cudaError_t eError);
/// What stops a call before it begins: no driver, no device, a failure that a test asked for.
cudaError_t Begin(const char* pcCall);
Device& Current();  ///< the calling thread's device, where there is any
/// Ends the launch that runs on this thread: its device keeps cudaErrorLaunchFailure, the reason
/// goes to stderr.
[[gnu::format(printf, 1, 2)]] void Trap(const char* pcFormat, ...);

/// A call of the program that works on the current device, under its lock.
/// \param fWork     takes the device, returns cudaError_t
/// \param bRelease  the call frees something: it does so on a broken device too
template <class F>
cudaError_t Call(const char* pcCall, F fWork, bool bRelease = false)
{
    cudaError_t eError = Begin(pcCall);
    if (eError != cudaSuccess) return Note(eError);
    Device& rDevice = Current();
    const std::lock_guard aLock(rDevice.aMutex);
    if (bRelease || rDevice.eSticky == cudaSuccess) eError = fWork(rDevice);
    return Note(rDevice.eSticky == cudaSuccess ? eError : rDevice.eSticky.load());
}
/// The same with something that the device must hold.
template <class F>
cudaError_t CallWith(EKind eKind, const void* pvHandle, const char* pcCall, F fWork,
                     bool bRelease = false)
{
    const auto Work = [&](Device& rDevice)
    { return rDevice.Find(eKind, pvHandle) ? fWork(rDevice) : cudaErrorInvalidResourceHandle; };
    return Call(pcCall, Work, bRelease);
}
}  // namespace SoftCuda
