#include <cstdio>

#include "tests/softcuda/Call.h"

// Devices and errors.

using namespace SoftCuda;

namespace
{
thread_local int t_iDevice = 0;
thread_local cudaError_t t_eLast = cudaSuccess;

cudaError_t StickyOr(cudaError_t eError)
{
    return Sys().iDevices > 0 && Current()->IsBroken() ? Current()->GetSticky() : eError;
}
}  // namespace

namespace SoftCuda
{
cudaError_t Note(cudaError_t eError)
{
    if (eError != cudaSuccess && eError != cudaErrorNotReady) t_eLast = eError;
    return eError;
}

cudaError_t Begin(const char* pcCall)
{
    if (Sys().iDevices < 0) return cudaErrorInsufficientDriver;
    if (Sys().iDevices == 0) return cudaErrorNoDevice;
    return Sys().aFailures.Take(pcCall);
}

CDevice* Current()
{
    return &Sys().aDevices[t_iDevice];
}
CDevice* OwnerOf(const void* pvHandle)
{
    return Sys().aHandles.Find(pvHandle);
}
CDevice* OwnerOfStream(cudaStream_t pStream)
{
    return pStream ? OwnerOf(pStream) : Current();
}

bool IsSticky(cudaError_t eError)
{
    return eError == cudaErrorIllegalAddress || eError == cudaErrorLaunchFailure ||
           eError == cudaErrorLaunchTimeout || eError == cudaErrorECCUncorrectable;
}
}  // namespace SoftCuda

cudaError_t cudaGetDeviceCount(int* count)
{
    *count = 0;
    const cudaError_t eError = Begin(__func__);
    if (eError == cudaSuccess) *count = Sys().iDevices;
    return Note(eError);
}

cudaError_t cudaDriverGetVersion(int* driverVersion)
{
    *driverVersion = Sys().iDevices < 0 ? 0 : 13000;
    return cudaSuccess;
}

cudaError_t cudaRuntimeGetVersion(int* runtimeVersion)
{
    *runtimeVersion = 13000;
    return cudaSuccess;
}

cudaError_t cudaSetDevice(int device)
{
    const cudaError_t eError = Begin(__func__);
    if (eError != cudaSuccess) return Note(eError);
    if (device < 0 || device >= Sys().iDevices) return Note(cudaErrorInvalidDevice);
    t_iDevice = device;
    return cudaSuccess;
}

cudaError_t cudaGetDevice(int* device)
{
    const cudaError_t eError = Begin(__func__);
    if (eError == cudaSuccess) *device = t_iDevice;
    return Note(eError);
}

cudaError_t cudaGetDeviceProperties(cudaDeviceProp* prop, int device)
{
    const cudaError_t eError = Begin(__func__);
    if (eError != cudaSuccess) return Note(eError);
    if (device < 0 || device >= Sys().iDevices) return Note(cudaErrorInvalidDevice);
    *prop = {};
    std::snprintf(prop->name, sizeof prop->name, "software device %d", device);
    prop->totalGlobalMem = Sys().aDevices[device].m_tMemory;
    prop->major = 9;
    prop->multiProcessorCount = 4;
    return cudaSuccess;
}

cudaError_t cudaMemGetInfo(std::size_t* free, std::size_t* total)
{
    return OnDevice(__func__, Current(),
                    [&](CDevice& rDevice)
                    {
                        *total = rDevice.m_tMemory;
                        *free = *total > rDevice.GetUsed() ? *total - rDevice.GetUsed() : 0;
                        return cudaSuccess;
                    });
}

cudaError_t cudaPeekAtLastError()
{
    return StickyOr(t_eLast);
}

cudaError_t cudaGetLastError()
{
    const cudaError_t eError = StickyOr(t_eLast);
    t_eLast = cudaSuccess;
    return eError;
}

const char* cudaGetErrorName(cudaError_t error)
{
    switch (error)
    {
#define SOFTCUDA_CASE(VALUE, NAME, TEXT) \
    case NAME:                           \
        return #NAME;
        SOFTCUDA_ERRORS(SOFTCUDA_CASE)
#undef SOFTCUDA_CASE
    }
    return "unrecognized error code";
}

const char* cudaGetErrorString(cudaError_t error)
{
    switch (error)
    {
#define SOFTCUDA_CASE(VALUE, NAME, TEXT) \
    case NAME:                           \
        return TEXT;
        SOFTCUDA_ERRORS(SOFTCUDA_CASE)
#undef SOFTCUDA_CASE
    }
    return "unrecognized error code";
}

cudaError_t cudaDeviceSynchronize()
{
    return OnDevice(__func__, Current(),
                    [](CDevice& rDevice)
                    {
                        rDevice.Synchronize();
                        return cudaSuccess;
                    });
}

cudaError_t cudaDeviceReset()
{
    return OnDevice(__func__, Current(),
                    [](CDevice& rDevice)
                    {
                        rDevice.FreeAll();
                        return cudaSuccess;
                    });
}
