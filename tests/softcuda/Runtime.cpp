#include "tests/softcuda/Runtime.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <string>

// Devices, what can be asked of them, errors, and what a test sets.

namespace SoftCuda
{
namespace
{
thread_local int t_iDevice = 0;
thread_local cudaError_t t_eLast = cudaSuccess;

std::atomic<bool> g_bAnyFailure = false;  // calls take the mutex only while a failure waits
std::mutex g_aFailureMutex;
std::map<std::string, std::pair<cudaError_t, int>> g_aFailures;  // after how many calls

/// Name and text.
std::pair<const char*, const char*> Describe(cudaError_t eError)
{
#define SOFTCUDA_CASE(VALUE, NAME, TEXT) \
    if (eError == NAME) return {#NAME, TEXT};
    SOFTCUDA_ERRORS(SOFTCUDA_CASE)
    return {"unrecognized error code", "unrecognized error code"};
}
}  // namespace

Device& Current()
{
    return g_aDevices[t_iDevice];
}

void Device::Break(cudaError_t eError)
{
    cudaError_t eNone = cudaSuccess;
    eSticky.compare_exchange_strong(eNone, eError);
}

void Trap(const char* pcFormat, ...)
{
    if (Current().eSticky != cudaSuccess) return;  // said once
    va_list aArgs;
    va_start(aArgs, pcFormat);
    std::vfprintf(stderr, pcFormat, aArgs);
    va_end(aArgs);
    Current().Break(cudaErrorLaunchFailure);
}

cudaError_t Note(cudaError_t eError)
{
    if (eError != cudaSuccess && eError != cudaErrorNotReady) t_eLast = eError;
    return eError;
}

cudaError_t Begin(const char* pcCall)
{
    if (g_iDevices < 0) return cudaErrorInsufficientDriver;
    if (g_iDevices == 0) return cudaErrorNoDevice;
    if (!g_bAnyFailure) return cudaSuccess;
    const std::lock_guard aLock(g_aFailureMutex);
    const auto iFound = g_aFailures.find(pcCall);
    if (iFound == g_aFailures.end() || iFound->second.second-- > 0) return cudaSuccess;
    const cudaError_t eError = iFound->second.first;
    g_aFailures.erase(iFound);
    g_bAnyFailure = !g_aFailures.empty();
    if (eError == cudaErrorIllegalAddress) Current().Break(eError);  // it lasts
    return eError;
}

void SetDevices(int iCount)
{
    g_iDevices = iCount;
}

void SetMemory(std::size_t tBytes)
{
    for (Device& rDevice : g_aDevices) rDevice.tMemory = tBytes;
}

void SetCapability(int iTenths, int iDevice)
{
    g_aDevices[iDevice].iCapability = iTenths;
}

void SetOrder(EOrder eOrder)
{
    g_eOrder = eOrder;
}

void FailNext(const char* pcCall, cudaError_t eError, int iAfter)
{
    const std::lock_guard aLock(g_aFailureMutex);
    g_aFailures[pcCall] = {eError, iAfter};
    g_bAnyFailure = true;
}

LiveObjects GetLiveObjects()
{
    LiveObjects aLive;
    for (const Device& rDevice : g_aDevices)
    {
        for (const auto& [pcBegin, rOwned] : rDevice.aOwned)
            aLive.iEvents += rOwned.eKind == EKind::eEvent;
        aLive.iTotal += int(rDevice.aOwned.size());
        for (const Object& rObject : rDevice.vObjects) aLive.iTotal += rObject.pArray != nullptr;
    }
    return aLive;
}

int GetLaunches()
{
    int iLaunches = 0;
    for (const Device& rDevice : g_aDevices) iLaunches += rDevice.iLaunches;
    return iLaunches;
}

std::size_t GetMemoryPeak()
{
    return g_aDevices[0].tPeak;
}

void Device::Forget()
{
    Break(cudaErrorUnknown);  // what is queued may point to memory that is gone: it never runs
    Synchronize();
    vObjects.assign(vObjects.size(), {});  // old handles stay dead
    vpStreams.clear();
    aOwned.clear();
    tUsed = tPeak = 0;
    tMemory = std::size_t(1) << 30;
    iCapability = 90;
    iLaunches = 0;
    eSticky = cudaSuccess;
}

void Reset()
{
    for (Device& rDevice : g_aDevices)
    {
        const std::lock_guard aLock(rDevice.aMutex);
        rDevice.Forget();
    }
    g_aFailures.clear();
    g_bAnyFailure = false;
    SetDevices(2);
    SetOrder(EOrder::eLazy);
    t_eLast = cudaSuccess;
    t_iDevice = 0;
}
}  // namespace SoftCuda

using namespace SoftCuda;

cudaError_t cudaSetDevice(int device)
{
    const cudaError_t eError = Begin(__func__);
    if (eError != cudaSuccess) return Note(eError);
    if (device < 0 || device >= g_iDevices) return Note(cudaErrorInvalidDevice);
    t_iDevice = device;
    return cudaSuccess;
}

cudaError_t cudaGetDevice(int* device)
{
    *device = t_iDevice;
    return Note(Begin(__func__));
}

cudaError_t cudaGetLastError()
{
    const cudaError_t eError = std::exchange(t_eLast, cudaSuccess);
    return Current().eSticky == cudaSuccess ? eError : Current().eSticky.load();
}

cudaError_t cudaGetDeviceCount(int* count)
{
    *count = std::max(0, g_iDevices.load());
    return Note(Begin(__func__));
}

cudaError_t cudaDriverGetVersion(int* driverVersion)
{
    *driverVersion = g_iDevices < 0 ? 0 : 13000;
    return cudaSuccess;
}

cudaError_t cudaRuntimeGetVersion(int* runtimeVersion)
{
    *runtimeVersion = 13000;
    return cudaSuccess;
}

cudaError_t cudaGetDeviceProperties(cudaDeviceProp* prop, int device)
{
    const cudaError_t eError = Begin(__func__);
    if (eError != cudaSuccess) return Note(eError);
    const Device& rDevice = g_aDevices.at(device);
    *prop = {"", rDevice.tMemory, rDevice.iCapability / 10, rDevice.iCapability % 10, 4};
    std::snprintf(prop->name, sizeof prop->name, "software device %d", device);
    return cudaSuccess;
}

cudaError_t cudaMemGetInfo(std::size_t* free, std::size_t* total)
{
    const auto Work = [=](const Device& rDevice)
    {
        *total = rDevice.tMemory;
        *free = *total - std::min(*total, rDevice.tUsed);
        return cudaSuccess;
    };
    return Call(__func__, Work);
}

const char* cudaGetErrorName(cudaError_t error)
{
    return Describe(error).first;
}

const char* cudaGetErrorString(cudaError_t error)
{
    return Describe(error).second;
}
