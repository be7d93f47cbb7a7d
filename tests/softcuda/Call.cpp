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

bool IsSticky(cudaError_t eError)
{
    return eError == cudaErrorIllegalAddress || eError == cudaErrorLaunchFailure ||
           eError == cudaErrorLaunchTimeout || eError == cudaErrorECCUncorrectable;
}

CCall::CCall(const char* pcCall, CDevice* pDevice, bool bRelease)
    : m_pDevice(pDevice), m_eRefusal(Begin(pcCall))
{
    if (pDevice && IsSticky(m_eRefusal)) pDevice->Break(m_eRefusal);
    if (!pDevice && m_eRefusal == cudaSuccess) m_eRefusal = cudaErrorInvalidResourceHandle;
    m_bRefused = m_eRefusal != cudaSuccess;
    if (m_bRefused) return;
    m_aLock = std::unique_lock(pDevice->GetMutex());
    m_bRefused = pDevice->IsBroken() && !bRelease;
}

cudaError_t CCall::End(cudaError_t eError) const
{
    if (m_eRefusal != cudaSuccess) return Note(m_eRefusal);
    return Note(m_pDevice->IsBroken() ? m_pDevice->GetSticky() : eError);
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
    const cudaError_t eError = Begin(__func__);
    if (eError == cudaSuccess) *device = t_iDevice;
    return Note(eError);
}

cudaError_t cudaPeekAtLastError()
{
    const bool bBroken = Sys().iDevices > 0 && Current()->IsBroken();
    return bBroken ? Current()->GetSticky() : t_eLast;
}

cudaError_t cudaGetLastError()
{
    const cudaError_t eError = cudaPeekAtLastError();
    t_eLast = cudaSuccess;
    return eError;
}
