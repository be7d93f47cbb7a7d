#include "talven/Text.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fstream>

namespace talven
{
namespace
{

constexpr std::string_view g_strBlanks = " \t\r\v\f";

std::string_view Trim(std::string_view strText)
{
    const std::size_t tFirst = strText.find_first_not_of(g_strBlanks);
    if (tFirst == std::string_view::npos) return {};
    return strText.substr(tFirst, strText.find_last_not_of(g_strBlanks) - tFirst + 1);
}

}  // namespace

bool Fail(std::string& rError, const std::string& strWhy)
{
    rError = strWhy;
    return false;
}

std::string Format(const char* pcFormat, ...)
{
    std::string strText(1024, '\0');
    for (int iTry = 0; iTry < 2; ++iTry)
    {
        std::va_list aArgs;
        va_start(aArgs, pcFormat);
        // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): it does not know va_start of g++
        const int iLength = std::vsnprintf(strText.data(), strText.size(), pcFormat, aArgs);
        va_end(aArgs);
        const bool bFits = iLength < static_cast<int>(strText.size());
        strText.resize(static_cast<std::size_t>(iLength) + (bFits ? 0 : 1));
        if (bFits) break;
    }
    return strText;
}

std::string FormatBytes(std::uint64_t ulBytes)
{
    const auto dBytes = static_cast<double>(ulBytes);
    if (dBytes >= 0x1p30) return Format("%.1f GiB", dBytes / 0x1p30);
    if (dBytes >= 0x1p20) return Format("%.0f MiB", dBytes / 0x1p20);
    return Format("%.0f kiB", dBytes / 0x1p10);
}

std::string FormatSeconds(double dSeconds)
{
    if (dSeconds < 10) return Format("%.2f s", dSeconds);
    if (dSeconds < 60) return Format("%.1f s", dSeconds);
    const auto iSeconds = std::lround(dSeconds);
    if (iSeconds < 3600) return Format("%ld min %02ld s", iSeconds / 60, iSeconds % 60);
    return Format("%ld h %02ld min", iSeconds / 3600, iSeconds / 60 % 60);
}

bool ParseNumbers(std::string_view strText, std::string_view strBetween, std::span<float> fNumbers)
{
    for (float& rNumber : fNumbers)
    {
        strText.remove_prefix(std::min(strText.find_first_not_of(strBetween), strText.size()));
        if (strText.starts_with('+')) strText.remove_prefix(1);
        const auto [pcStop, eError] =
            std::from_chars(strText.data(), strText.data() + strText.size(), rNumber);
        if (eError != std::errc() || !std::isfinite(rNumber)) return false;
        strText.remove_prefix(static_cast<std::size_t>(pcStop - strText.data()));
        if (!strText.empty() && strBetween.find(strText.front()) == std::string_view::npos)
            return false;
    }
    return strText.find_first_not_of(strBetween) == std::string_view::npos;
}

bool ReadLines(const std::string& strPath, const std::string& strThings, const LineTaker& Take,
               std::string& rError)
{
    std::ifstream aFile(strPath, std::ios::binary);
    if (!aFile) return Fail(rError, strPath + ": cannot read: " + std::strerror(errno));
    bool bAny = false;
    std::string strLine;
    for (int iLine = 1; std::getline(aFile, strLine); ++iLine)
    {
        const std::string_view strText =
            Trim(std::string_view(strLine).substr(0, strLine.find('#')));
        std::string strReason;
        if (!strText.empty() && !Take(strText, strReason))
            return Fail(rError,
                        Format("%s, line %d: %s", strPath.c_str(), iLine, strReason.c_str()));
        bAny = bAny || !strText.empty();
    }
    if (!aFile.bad() && bAny) return true;
    return Fail(rError,
                strPath + (aFile.bad() ? ": cannot read" : ": no " + strThings + " in this file"));
}

}  // namespace talven
