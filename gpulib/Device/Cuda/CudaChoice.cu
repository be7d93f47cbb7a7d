// Whether this machine has a driver and devices that the CUDA backend can use.

#include <cuda_runtime.h>

#include "gpulib/Device/Cuda/CudaBackend.h"

namespace
{
std::string VersionName(int iVersion)
{
    return std::to_string(iVersion / 1000) + "." + std::to_string(iVersion % 1000 / 10);
}

/// Why there is no device.
std::string WhyNot(cudaError_t eCode)
{
    int iDriver = 0, iRuntime = 0;
    cudaDriverGetVersion(&iDriver);
    cudaRuntimeGetVersion(&iRuntime);
    if (iDriver == 0) return "no CUDA driver";
    if (eCode == cudaErrorInsufficientDriver)
        return "the CUDA driver is for version " + VersionName(iDriver) + ", " +
               VersionName(iRuntime) + " is needed";
    if (eCode == cudaSuccess || eCode == cudaErrorNoDevice) return "no CUDA device";
    return std::string("CUDA: ") + cudaGetErrorString(eCode);
}

/// In every build for exactly the GPUs that the other kernels are in it for.
__global__ void ProbeKernel() {}

/// Why this process cannot compute on a device, empty where it can. Takes memory of the device.
std::string WhyNotOn(int iDevice, const cudaDeviceProp& rProperties)
{
    cudaFuncAttributes aKernel = {};
    std::size_t tFree = 0, tTotal = 0;
    cudaError_t eCode = cudaSetDevice(iDevice);
    if (eCode == cudaSuccess) eCode = cudaMemGetInfo(&tFree, &tTotal);
    if (eCode == cudaSuccess)
        eCode = cudaFuncGetAttributes(&aKernel, reinterpret_cast<const void*>(ProbeKernel));
    // It would be chosen, and then fail every job.
    if (eCode == cudaErrorNoKernelImageForDevice || eCode == cudaErrorInvalidDeviceFunction)
        return "no kernel of this build is for compute capability " +
               std::to_string(rProperties.major) + "." + std::to_string(rProperties.minor);
    return eCode == cudaSuccess ? "" : cudaGetErrorString(eCode);
}

/// What is known of a device, and why it is left out where it cannot be used.
/// \param bBusy  it is left to others, who keep all of its memory
CCudaBackend::Properties Query(int iDevice, bool bBusy)
{
    cudaDeviceProp aProperties = {};
    const cudaError_t eCode = cudaGetDeviceProperties(&aProperties, iDevice);
    if (eCode != cudaSuccess) return {"", 0, cudaGetErrorString(eCode)};
    const std::string strWhyNot = bBusy ? "" : WhyNotOn(iDevice, aProperties);
    return {aProperties.name, strWhyNot.empty() ? aProperties.totalGlobalMem : 0, strWhyNot};
}
}  // namespace

std::unique_ptr<CBackend> MakeCudaBackend(int iMaxRows, std::string& rReason, unsigned uiBusy)
{
    int iCount = 0;
    const cudaError_t eCode = cudaGetDeviceCount(&iCount);
    std::vector<CCudaBackend::Properties> vDevices;
    for (int i = 0; eCode == cudaSuccess && i < iCount; ++i)
        vDevices.push_back(Query(i, i > 15 || (uiBusy >> i & 1)));
    cudaGetLastError();
    if (vDevices.empty())
    {
        rReason = WhyNot(eCode);
        return nullptr;
    }
    auto pBackend = std::make_unique<CCudaBackend>(std::move(vDevices), iMaxRows);
    for (int i = 0; i < iCount; ++i)
        if (pBackend->GetDeviceMemory(i) > 0) return pBackend;
    rReason = pBackend->GetDetail();  // why each is left out
    return nullptr;
}
