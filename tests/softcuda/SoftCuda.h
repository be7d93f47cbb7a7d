#pragma once

#include <cuda_runtime.h>

/// Steers the software CUDA runtime from a test. Not while another thread calls the runtime.
///
/// An asynchronous operation waits in its stream until something demands it: a synchronisation, a
/// free, or a wait of another stream. A missing wait is therefore a wrong result, in every run
/// alike. All that a call is given belongs to the current device.
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
void SetMemory(std::size_t tBytes);            ///< of each device, bytes. At first 1 GiB.
void SetCapability(int iTenths, int iDevice);  ///< At first 90.
void SetOrder(EOrder eOrder);                  ///< at first eLazy

/// One coming call of pcCall ("cudaMalloc3DArray", "cudaLaunchKernelEx") does nothing and returns
/// eError; iAfter calls of that name succeed before it. Errors that are sticky on a device stay.
void FailNext(const char* pcCall, cudaError_t eError, int iAfter = 0);

LiveObjects GetLiveObjects();
int GetLaunches();            ///< kernels that ran, on all devices
std::size_t GetMemoryPeak();  ///< most bytes that device 0 had allocated at once
/// Frees everything, forgets errors, counts and coming failures, and takes the first settings.
void Reset();
}  // namespace SoftCuda
