#include "Util/Util_String.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

std::unique_ptr<char[]> Util_String::GetCopy(const char* pcText)
{
    if (pcText == nullptr) return nullptr;
    const std::size_t tBytes = std::strlen(pcText) + 1;
    auto pcCopy = std::make_unique<char[]>(tBytes);
    std::memcpy(pcCopy.get(), pcText, tBytes);
    return pcCopy;
}

void Util_String::RemoveSpace(char* pcText)
{
    if (pcText == nullptr) return;
    *std::remove(pcText, pcText + std::strlen(pcText), ' ') = '\0';
}

std::string Util_String::Format(const char* pcFormat, ...)
{
    std::va_list aArgs;
    va_start(aArgs, pcFormat);
    std::string strText = FormatList(pcFormat, aArgs);
    va_end(aArgs);
    return strText;
}

std::string Util_String::FormatList(const char* pcFormat, std::va_list aArgs)
{
    char acText[512];
    std::vsnprintf(acText, sizeof acText, pcFormat, aArgs);
    return acText;
}
