#pragma once

#include <cuda_runtime.h>

#include <cstddef>

/// Steers the software CUDA runtime from a test. Not while another thread calls the runtime.
///
/// An asynchronous operation waits in its stream until something demands it: a synchronisation, a
/// blocking copy of its stream, a free, or a wait of another stream. A missing wait is therefore a
/// wrong result, in every run alike.
namespace SoftCuda
{
/// What the program holds, over all devices.
struct LiveObjects
{
    int iTotal = 0, iEvents = 0;  ///< events are counted in both
    int GetTotal() const { return iTotal; }
};

/// Which of the orders that streams permit is taken when one stream is demanded.
enum class EOrder
{
    eLazy,        ///< nothing else runs: finds a consumer that does not wait for its producer
    eOthersFirst  ///< all other streams run before: finds a producer that overtakes its consumer
};

/// Devices from now on, at most 16; 0: cudaErrorNoDevice; -1: no driver. At first 2.
void SetDevices(int iCount);
/// Memory of device iDevice (-1: of all), bytes. At first 1 GiB each.
void SetMemory(std::size_t tBytes, int iDevice = -1);
/// Compute capability of device iDevice, tenths. At first 90.
void SetCapability(int iTenths, int iDevice);
void SetOrder(EOrder eOrder);  ///< at first eLazy

/// One coming call of pcCall ("cudaMalloc3DArray", "cudaLaunchKernelEx") does nothing and returns
/// eError; iAfter calls of that name succeed before it. Errors that are sticky on a device stay.
void FailNext(const char* pcCall, cudaError_t eError, int iAfter = 0);

LiveObjects GetLiveObjects();
int GetLaunches();                           ///< kernels that ran, on all devices
std::size_t GetMemoryPeak(int iDevice = 0);  ///< most bytes that were allocated at once
/// Frees everything, forgets errors, counts and coming failures, and takes the first settings.
void Reset();
}  // namespace SoftCuda
