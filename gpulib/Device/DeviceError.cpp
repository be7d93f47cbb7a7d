#include "gpulib/Device/DeviceError.h"

#include <cstdarg>
#include <cstdio>
#include <utility>

namespace
{
thread_local std::string t_strError;
}

bool DeviceFail(const char* pcFormat, ...)
{
    if (!t_strError.empty()) return false;
    char acText[512];
    va_list aArgs;
    va_start(aArgs, pcFormat);
    std::vsnprintf(acText, sizeof(acText), pcFormat, aArgs);
    va_end(aArgs);
    t_strError = acText;
    return false;
}

std::string TakeDeviceError()
{
    return std::exchange(t_strError, std::string());
}
