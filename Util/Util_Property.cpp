#include "Util/Util_Property.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "Util/Util_String.h"

namespace
{
constexpr off_t g_tMaxBytes = 1 << 20;  // a settings file, not a volume

/// The text of a file with a final NUL, null when it is empty or cannot be read whole.
std::unique_ptr<char[]> ReadFile(const char* pcFileName)
{
    const int iFile = open(pcFileName, O_RDONLY | O_CLOEXEC);
    if (iFile == -1) return nullptr;
    std::unique_ptr<char[]> pcText;
    struct stat aStat = {};
    if (fstat(iFile, &aStat) == 0 && S_ISREG(aStat.st_mode) && aStat.st_size > 0 &&
        aStat.st_size <= g_tMaxBytes)
    {
        pcText = std::make_unique<char[]>(static_cast<std::size_t>(aStat.st_size) + 1);
        const ssize_t tRead = read(iFile, pcText.get(), static_cast<std::size_t>(aStat.st_size));
        if (tRead != aStat.st_size) pcText.reset();
    }
    close(iFile);
    return pcText;
}
}  // namespace

void Util_Property::SetFileName(const char* pcFileName)
{
    m_vEntries.clear();
    if (pcFileName == nullptr) return;
    if (const auto pcText = ReadFile(pcFileName)) mParse(pcText.get());
}

void Util_Property::mParse(char* pcText)
{
    m_vEntries.resize(1 + std::count(pcText, pcText + std::strlen(pcText), '\n'));
    std::size_t tEntry = 0;
    char* pcNextLine = nullptr;
    for (char* pcLine = strtok_r(pcText, "\n\r", &pcNextLine); pcLine != nullptr;
         pcLine = strtok_r(nullptr, "\n\r", &pcNextLine))
    {
        if (tEntry == m_vEntries.size()) m_vEntries.emplace_back();  // lines ended by '\r' alone
        Util_Entry& rEntry = m_vEntries[tEntry++];
        char* pcRest = nullptr;
        rEntry.m_pcKey = Util_String::GetCopy(strtok_r(pcLine, "=", &pcRest));
        rEntry.m_pcVal =
            Util_String::GetCopy(rEntry.m_pcKey ? strtok_r(nullptr, "=", &pcRest) : nullptr);
        Util_String::RemoveSpace(rEntry.m_pcKey.get());
        Util_String::RemoveSpace(rEntry.m_pcVal.get());
    }
}

const char* Util_Property::GetStringValue(const char* pcKey) const
{
    if (pcKey == nullptr || pcKey[0] == '\0') return nullptr;
    for (const Util_Entry& rEntry : m_vEntries)
        if (rEntry.m_pcKey && strcasecmp(rEntry.m_pcKey.get(), pcKey) == 0)
            return rEntry.m_pcVal.get();
    return nullptr;
}

double Util_Property::GetValue(const char* pcKey) const
{
    const char* pcVal = GetStringValue(pcKey);
    return pcVal != nullptr ? std::atof(pcVal) : 0.0;
}

bool Util_Property::GetBooleanValue(const char* pcKey) const
{
    const char* pcVal = GetStringValue(pcKey);
    return pcVal != nullptr && strcasecmp(pcVal, "true") == 0;
}
