#include "tests/softcuda/Call.h"

namespace SoftCuda
{
namespace
{
thread_local int t_iDevice = 0;
thread_local cudaError_t t_eLast = cudaSuccess;
}  // namespace

cudaError_t Note(cudaError_t eError)
{
    if (eError != cudaSuccess && eError != cudaErrorNotReady) t_eLast = eError;
    return eError;
}

cudaError_t Begin(const char* pcCall, CDevice* pDevice)
{
    if (Sys().iDevices < 0) return cudaErrorInsufficientDriver;
    if (Sys().iDevices == 0) return cudaErrorNoDevice;
    const cudaError_t eError = Sys().aFailures.Take(pcCall);
    const bool bLasts = eError == cudaErrorIllegalAddress || eError == cudaErrorLaunchFailure ||
                        eError == cudaErrorLaunchTimeout || eError == cudaErrorECCUncorrectable;
    if (bLasts && pDevice) pDevice->Break(eError);
    return eError;
}

CDevice* Current()
{
    return &Sys().aDevices[t_iDevice];
}
CDevice* OwnerOf(cudaEvent_t pEvent)
{
    return Sys().aOwners.Find(EKind::eEvent, pEvent);
}
CDevice* OwnerOf(cudaArray_t pArray)
{
    return Sys().aOwners.Find(EKind::eArray, pArray);
}
CDevice* OwnerOf(cudaStream_t pStream)
{
    return pStream ? Sys().aOwners.Find(EKind::eStream, pStream) : Current();
}
}  // namespace SoftCuda

using namespace SoftCuda;

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
    *device = t_iDevice;
    return Note(Begin(__func__));
}

cudaError_t cudaGetLastError()
{
    const bool bBroken = Sys().iDevices > 0 && Current()->IsBroken();
    const cudaError_t eError = bBroken ? Current()->GetSticky() : t_eLast;
    t_eLast = cudaSuccess;
    return eError;
}
