#include "gpulib/Device/DeviceError.h"

#include <cstdarg>
#include <utility>

#include "Util/Util_String.h"

namespace
{
thread_local std::string t_strError;
}

bool DeviceFail(const char* pcFormat, ...)
{
    if (!t_strError.empty()) return false;
    std::va_list aArgs;
    va_start(aArgs, pcFormat);
    t_strError = Util_String::FormatList(pcFormat, aArgs);
    va_end(aArgs);
    return false;
}

std::string TakeDeviceError()
{
    return std::exchange(t_strError, std::string());
}
