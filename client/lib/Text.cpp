#include "talven/Text.h"

#include <algorithm>
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
        if (strText.starts_with('+') && !strText.starts_with("+-")) strText.remove_prefix(1);
        const auto [pcStop, eError] =
            std::from_chars(strText.data(), strText.data() + strText.size(), rNumber);
        if (eError != std::errc() || !std::isfinite(rNumber)) return false;
        strText.remove_prefix(static_cast<std::size_t>(pcStop - strText.data()));
        if (!strText.empty() && strBetween.find(strText.front()) == std::string_view::npos)
            return false;
    }
    return strText.find_first_not_of(strBetween) == std::string_view::npos;
}

std::string_view Trim(std::string_view strText)
{
    const std::size_t tFirst = strText.find_first_not_of(g_strBlanks);
    if (tFirst == std::string_view::npos) return {};
    return strText.substr(tFirst, strText.find_last_not_of(g_strBlanks) - tFirst + 1);
}

bool IsSameWord(std::string_view strA, std::string_view strB)
{
    const auto ToLower = [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; };
    return std::ranges::equal(strA, strB, {}, ToLower, ToLower);
}

std::string Show(std::string_view strText)
{
    std::string strShown;
    for (const char c : strText.substr(0, 40)) strShown += c >= ' ' && c <= '~' ? c : '?';
    return strShown;
}

bool ParseViews(const std::string& strText, std::vector<int>& rViews, std::string& rError)
{
    constexpr int iMost = 1'000'000;  // keeps 1-2000000000 from filling the memory
    const auto ParseNumber = [](const char*& rpc, const char* pcEnd, int& rValue)
    {
        const auto [pcStop, eError] = std::from_chars(rpc, pcEnd, rValue);
        rpc = pcStop;
        return eError == std::errc() && rValue >= 1 && rValue <= iMost;
    };
    std::vector<int> viViews;
    for (std::size_t tAt = 0; tAt <= strText.size();)
    {
        const std::size_t tEnd = std::min(strText.find(',', tAt), strText.size());
        const char *pc = strText.data() + tAt, *const pcEnd = strText.data() + tEnd;
        int iFirst = 0, iLast = 0;
        bool bGood = ParseNumber(pc, pcEnd, iFirst);
        iLast = iFirst;
        if (bGood && pc != pcEnd) bGood = *pc++ == '-' && ParseNumber(pc, pcEnd, iLast);
        if (!bGood || pc != pcEnd || iLast < iFirst)
            return Fail(rError, "expected views counted from 1, such as 3,7-9, found \"" +
                                    Show(strText.substr(tAt, tEnd - tAt)) + "\"");
        for (int i = iFirst; i <= iLast; ++i) viViews.push_back(i - 1);
        tAt = tEnd + 1;
    }
    std::sort(viViews.begin(), viViews.end());
    viViews.erase(std::unique(viViews.begin(), viViews.end()), viViews.end());
    rViews = std::move(viViews);
    return true;
}

bool OpenText(const std::string& strPath, std::ifstream& rFile, std::string& rError)
{
    rFile.open(strPath, std::ios::binary);
    return rFile.is_open() || Fail(rError, strPath + ": cannot read: " + std::strerror(errno));
}

bool ParseFinite(std::string_view strText, double& rNumber)
{
    if (strText.starts_with('+') && !strText.starts_with("+-")) strText.remove_prefix(1);
    const char* pcEnd = strText.data() + strText.size();
    const auto [pcStop, eError] = std::from_chars(strText.data(), pcEnd, rNumber);
    return eError == std::errc() && pcStop == pcEnd && std::isfinite(rNumber);
}

bool ReadLines(std::istream& rText, const std::string& strName, const std::string& strThings,
               const LineTaker& Take, std::string& rError, std::string_view strComment)
{
    bool bAny = false;
    std::string strLine;
    for (int iLine = 1; std::getline(rText, strLine); ++iLine)
    {
        const std::string_view strText =
            Trim(std::string_view(strLine).substr(0, strLine.find_first_of(strComment)));
        std::string strReason;
        if (!strText.empty() && !Take(strText, strReason))
            return Fail(rError,
                        Format("%s, line %d: %s", strName.c_str(), iLine, strReason.c_str()));
        bAny = bAny || !strText.empty();
    }
    if (!rText.bad() && bAny) return true;
    return Fail(rError,
                strName + (rText.bad() ? ": cannot read" : ": no " + strThings + " in this file"));
}

bool ReadLines(const std::string& strPath, const std::string& strThings, const LineTaker& Take,
               std::string& rError, std::string_view strComment)
{
    std::ifstream aFile;
    return OpenText(strPath, aFile, rError) &&
           ReadLines(aFile, strPath, strThings, Take, rError, strComment);
}

}  // namespace talven
