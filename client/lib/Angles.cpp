#include "talven/Angles.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string_view>

#include "talven/AtomicFile.h"

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

bool ParseAngle(std::string_view strText, float& rAngle)
{
    if (strText.starts_with('+')) strText.remove_prefix(1);
    const char* pcEnd = strText.data() + strText.size();
    const auto [pcStop, eError] = std::from_chars(strText.data(), pcEnd, rAngle);
    return eError == std::errc() && pcStop == pcEnd && std::fabs(rAngle) <= 360;
}

}  // namespace

bool ReadAngles(const std::string& strPath, std::vector<float>& rAngles, std::string& rError)
{
    std::ifstream aFile(strPath, std::ios::binary);
    if (!aFile)
    {
        rError = strPath + ": cannot read: " + std::strerror(errno);
        return false;
    }
    std::vector<float> vfAngles;
    std::string strLine;
    for (int iLine = 1; std::getline(aFile, strLine); ++iLine)
    {
        const std::string_view strText =
            Trim(std::string_view(strLine).substr(0, strLine.find('#')));
        if (strText.empty()) continue;
        float fAngle = 0;
        if (!ParseAngle(strText, fAngle))
        {
            // A binary file given by mistake must not end up on the terminal.
            std::string strShown;
            for (const char c : strText.substr(0, 40)) strShown += c >= ' ' && c <= '~' ? c : '?';
            rError = strPath + ", line " + std::to_string(iLine) +
                     ": expected one angle in degrees, found ";
            rError.append("\"").append(strShown).append("\"");
            return false;
        }
        vfAngles.push_back(fAngle);
    }
    if (aFile.bad() || vfAngles.empty())
    {
        rError = strPath + (aFile.bad() ? ": cannot read" : ": no angles in this file");
        return false;
    }
    rAngles = std::move(vfAngles);
    return true;
}

bool WriteAngles(const std::string& strPath, std::span<const float> fAngles, std::string& rError)
{
    std::string strText;
    for (const float fAngle : fAngles)
    {
        char acLine[64];
        std::snprintf(acLine, sizeof(acLine), "%.2f", double(fAngle));
        if (std::strtof(acLine, nullptr) != fAngle)
            std::snprintf(acLine, sizeof(acLine), "%.9g", double(fAngle));
        strText.append(acLine).append("\n");
    }
    return WriteTextFile(strPath, strText, rError);
}

}  // namespace talven
