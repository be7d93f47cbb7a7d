#include "tests/softcuda/Runtime.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// Devices, what can be asked of them, errors, and what a test sets.

namespace SoftCuda
{
namespace
{
thread_local int t_iDevice = 0;

const char* g_pcFailing = "";  // the call that fails
cudaError_t g_eFailure = cudaSuccess;
std::atomic<int> g_iFailAfter = 0;

/// Name and text.
std::pair<const char*, const char*> Describe(cudaError_t eError)
{
#define SOFTCUDA_CASE(VALUE, NAME, TEXT) \
    if (eError == NAME) return {#NAME, TEXT};
    SOFTCUDA_ERRORS(SOFTCUDA_CASE)
    return {};
}
}  // namespace

Device& Current()
{
    return g_aDevices[t_iDevice];
}

cudaError_t Begin(const char* pcCall)
{
    if (std::strcmp(pcCall, g_pcFailing) != 0 || g_iFailAfter-- != 0) return Current().eSticky;
    if (g_eFailure == cudaErrorIllegalAddress) Current().eSticky = g_eFailure;
    return g_eFailure;
}

void Trap(const char* pcReason)
{
    std::fprintf(stderr, "software CUDA device: %s\n", pcReason);
    std::abort();
}

void FailNext(const char* pcCall, cudaError_t eError, int iAfter)
{
    g_pcFailing = pcCall;
    g_eFailure = eError;
    g_iFailAfter = iAfter;
}

void Reset()
{
    g_aSettings = {};
    g_pcFailing = "";
    g_aDevices = {};
    g_iLaunches = 0;
    g_tPeak = 0;
}
}  // namespace SoftCuda

using namespace SoftCuda;

cudaError_t cudaSetDevice(int device)
{
    t_iDevice = device;
    return Begin(__func__);
}

cudaError_t cudaGetDevice(int* device)
{
    *device = t_iDevice;
    return cudaSuccess;
}

cudaError_t cudaGetLastError()
{
    return cudaSuccess;  // a call that failed has said so
}

cudaError_t cudaGetDeviceCount(int* count)
{
    *count = std::max(0, g_aSettings.iDevices);
    return *count > 0 ? cudaSuccess : cudaErrorNoDevice;
}

cudaError_t cudaDriverGetVersion(int* driverVersion)
{
    *driverVersion = g_aSettings.iDevices < 0 ? 0 : 13000;
    return cudaSuccess;
}

cudaError_t cudaRuntimeGetVersion(int* runtimeVersion)
{
    *runtimeVersion = 13000;
    return cudaSuccess;
}

cudaError_t cudaGetDeviceProperties(cudaDeviceProp* prop, int device)
{
    *prop = {"", g_aSettings.tMemory, 9, 0, 4, 1 << 16};
    std::snprintf(prop->name, sizeof prop->name, "software device %d", device);
    return Begin(__func__);
}

cudaError_t cudaFuncGetAttributes(cudaFuncAttributes*, const void*)
{
    return Begin(__func__);
}

cudaError_t cudaMemGetInfo(std::size_t* free, std::size_t* total)
{
    *total = g_aSettings.tMemory;
    *free = *total - std::min(*total, Current().tUsed);
    return Begin(__func__);
}

const char* cudaGetErrorName(cudaError_t error)
{
    return Describe(error).first;
}

const char* cudaGetErrorString(cudaError_t error)
{
    return Describe(error).second;
}
