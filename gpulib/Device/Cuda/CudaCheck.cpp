#include "gpulib/Device/Cuda/CudaCheck.h"

#include <cstdarg>
#include <cstdio>

#include "gpulib/Device/DeviceError.h"

bool CudaOk(cudaError_t eCode, const char* pcFormat, ...)
{
    if (eCode == cudaSuccess) return true;
    char acWhat[256];
    va_list aArgs;
    va_start(aArgs, pcFormat);
    std::vsnprintf(acWhat, sizeof(acWhat), pcFormat, aArgs);
    va_end(aArgs);
    cudaGetLastError();  // a failed call is not the next launch's fault
    return DeviceFail("%s: %s (%s)", acWhat, cudaGetErrorString(eCode), cudaGetErrorName(eCode));
}
