#include <array>
#include <cstdio>

#include "tests/softcuda/Call.h"

// What can be asked of the driver and of a device; the texts of errors.

using namespace SoftCuda;

namespace
{
std::array<const char*, 2> Describe(cudaError_t eError)
{
#define SOFTCUDA_CASE(VALUE, NAME, TEXT) \
    if (eError == NAME) return {#NAME, TEXT};
    SOFTCUDA_ERRORS(SOFTCUDA_CASE)
#undef SOFTCUDA_CASE
    return {"unrecognized error code", "unrecognized error code"};
}
}  // namespace

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

cudaError_t cudaGetDeviceProperties(cudaDeviceProp* prop, int device)
{
    const cudaError_t eError = Begin(__func__);
    if (eError != cudaSuccess) return Note(eError);
    if (device < 0 || device >= Sys().iDevices) return Note(cudaErrorInvalidDevice);
    *prop = {};
    std::snprintf(prop->name, sizeof prop->name, "software device %d", device);
    prop->totalGlobalMem = Sys().aDevices[device].m_tMemory;
    prop->major = Sys().aDevices[device].m_iCapability / 10;
    prop->minor = Sys().aDevices[device].m_iCapability % 10;
    prop->multiProcessorCount = 4;
    return cudaSuccess;
}

cudaError_t cudaMemGetInfo(std::size_t* free, std::size_t* total)
{
    const auto Work = [=](CDevice& rDevice)
    {
        *total = rDevice.m_tMemory;
        *free = *total > rDevice.GetUsed() ? *total - rDevice.GetUsed() : 0;
    };
    return Call(__func__, Current(), Work);
}

const char* cudaGetErrorName(cudaError_t error)
{
    return Describe(error)[0];
}
const char* cudaGetErrorString(cudaError_t error)
{
    return Describe(error)[1];
}

cudaError_t cudaDeviceSynchronize()
{
    return Call(__func__, Current(), [](CDevice& rDevice) { rDevice.Synchronize(); });
}
