#include "server/Data/Refuse.h"

#include <cstdarg>
#include <cstdio>

bool Refuse(std::string& rReason, const char* pcFormat, ...)
{
    char acText[512];
    std::va_list aArgs;
    va_start(aArgs, pcFormat);
    std::vsnprintf(acText, sizeof acText, pcFormat, aArgs);
    va_end(aArgs);
    rReason = acText;
    return false;
}
