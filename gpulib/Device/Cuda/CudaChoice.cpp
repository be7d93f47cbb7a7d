// Whether this machine has a driver and devices that the CUDA backend can use.

#include <cuda_runtime.h>

#include "gpulib/Device/Cuda/CudaBackend.h"

namespace
{
std::string VersionName(int iVersion)
{
    return std::to_string(iVersion / 1000) + "." + std::to_string(iVersion % 1000 / 10);
}

std::string CapabilityName(int iTenths)
{
    return std::to_string(iTenths / 10) + "." + std::to_string(iTenths % 10);
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

/// What is known of a device, and why it is left out where it cannot be used.
CCudaBackend::Properties Query(int iDevice)
{
    cudaDeviceProp aProperties = {};
    const cudaError_t eCode = cudaGetDeviceProperties(&aProperties, iDevice);
    if (eCode != cudaSuccess) return {"", 0, cudaGetErrorString(eCode)};
    // One that no kernel was compiled for would be chosen, and then fail every job.
    const int iTenths = 10 * aProperties.major + aProperties.minor;
    if (iTenths < TALVEN_CUDA_OLDEST)
        return {"", 0,
                "compute capability " + CapabilityName(iTenths) + ", " +
                    CapabilityName(TALVEN_CUDA_OLDEST) + " is needed"};
    return {aProperties.name, aProperties.totalGlobalMem, ""};
}
}  // namespace

std::unique_ptr<CBackend> MakeCudaBackend(int iMaxRows, std::string& rReason)
{
    int iCount = 0;
    const cudaError_t eCode = cudaGetDeviceCount(&iCount);
    std::vector<CCudaBackend::Properties> vDevices;
    for (int i = 0; eCode == cudaSuccess && i < iCount; ++i) vDevices.push_back(Query(i));
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
