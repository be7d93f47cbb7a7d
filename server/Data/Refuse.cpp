#include "server/Data/Refuse.h"

#include "Util/Util_String.h"

bool Refuse(std::string& rReason, const char* pcFormat, ...)
{
    std::va_list aArgs;
    va_start(aArgs, pcFormat);
    rReason = Util_String::FormatList(pcFormat, aArgs);
    va_end(aArgs);
    return false;
}
