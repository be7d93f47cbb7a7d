#include "gpulib/Device/Cuda/CudaCheck.h"

#include <cstdarg>
#include <string>

#include "Util/Util_String.h"
#include "gpulib/Device/DeviceError.h"

bool CudaOk(cudaError_t eCode, const char* pcFormat, ...)
{
    if (eCode == cudaSuccess) return true;
    std::va_list aArgs;
    va_start(aArgs, pcFormat);
    const std::string strWhat = Util_String::FormatList(pcFormat, aArgs);
    va_end(aArgs);
    cudaGetLastError();  // a failed call is not the next launch's fault
    return DeviceFail("%s: %s (%s)", strWhat.c_str(), cudaGetErrorString(eCode),
                      cudaGetErrorName(eCode));
}
