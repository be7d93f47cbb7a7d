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
    if (eCode == cudaErrorNoDevice || eCode == cudaSuccess) return "no CUDA device";
    return std::string("CUDA: ") + cudaGetErrorString(eCode);
}
}  // namespace

std::unique_ptr<CBackend> MakeCudaBackend(bool bExact, int iMaxRows, std::string& rReason)
{
    int iCount = 0;
    cudaError_t eCode = cudaGetDeviceCount(&iCount);
    std::vector<CCudaBackend::Properties> vDevices;
    for (int i = 0; eCode == cudaSuccess && i < iCount; ++i)
    {
        cudaDeviceProp aProperties = {};
        eCode = cudaGetDeviceProperties(&aProperties, i);
        vDevices.push_back({aProperties.name, aProperties.totalGlobalMem});
    }
    if (eCode != cudaSuccess || vDevices.empty())
    {
        rReason = WhyNot(eCode);
        cudaGetLastError();
        return nullptr;
    }
    return std::make_unique<CCudaBackend>(std::move(vDevices), bExact, iMaxRows);
}
