#include "Util/Util_String.h"

#include <algorithm>
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
