#pragma once

#include <cuda_runtime.h>

#include <atomic>

/// Steers the software CUDA runtime from a test, which does so while no other thread calls it.
///
/// An asynchronous operation waits in its stream until something demands it: a synchronisation, a
/// free, or a wait of another stream. A missing wait is therefore a wrong result, in every run
/// alike.
namespace SoftCuda
{
/// Which of the orders that streams permit is taken when one stream is demanded.
enum class EOrder
{
    eLazy,        ///< nothing else runs: finds a consumer that does not wait for its producer
    eOthersFirst  ///< all other streams run before: finds a producer that overtakes its consumer
};

/// What a test chooses.
struct Settings
{
    int iDevices = 4;                            ///< at most 16; -1: not even a driver
    std::size_t tMemory = std::size_t(1) << 30;  ///< of each device, bytes
    EOrder eOrder = EOrder::eLazy;
};
inline Settings g_aSettings;

/// One coming call of pcCall ("cudaMallocAsync", "cudaLaunchKernelEx") does nothing and returns
/// eError; iAfter calls of that name succeed before it. Errors that are sticky on a device stay.
void FailNext(const char* pcCall, cudaError_t eError, int iAfter = 0);

// What all devices have seen.
inline std::atomic<int> g_iHeld;          ///< memory, streams, events: not freed
inline std::atomic<int> g_iLaunches;      ///< kernels that ran
inline std::atomic<std::size_t> g_tPeak;  ///< most bytes that one device had allocated at once
/// Forgets errors, launches, the peak and a coming failure, and takes the first settings. Nothing
/// is held.
void Reset();
}  // namespace SoftCuda
