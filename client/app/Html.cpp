#include "Html.h"

#include <algorithm>

namespace talven
{

std::string EscapeHtml(std::string_view strText)
{
    std::string strHtml;
    for (const char cNext : strText) switch (cNext)
        {
        case '&':
            strHtml += "&amp;";
            break;
        case '<':
            strHtml += "&lt;";
            break;
        case '>':
            strHtml += "&gt;";
            break;
        case '"':
            strHtml += "&quot;";
            break;
        case '\'':
            strHtml += "&#39;";
            break;
        default:
            const auto ucNext = static_cast<unsigned char>(cNext);
            strHtml += (ucNext < 32 && cNext != '\n') || ucNext == 127 ? '?' : cNext;
        }
    return strHtml;
}

std::string MakeDataUri(std::span<const std::byte> cPng)
{
    constexpr std::string_view strDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string strUri = "data:image/png;base64,";
    strUri.reserve(strUri.size() + (cPng.size() + 2) / 3 * 4);
    for (std::size_t t = 0; t < cPng.size(); t += 3)
    {
        const std::size_t tBytes = std::min<std::size_t>(3, cPng.size() - t);
        unsigned uiBits = 0;
        for (std::size_t i = 0; i < 3; ++i)
            uiBits = uiBits << 8 | (i < tBytes ? std::to_integer<unsigned>(cPng[t + i]) : 0);
        for (std::size_t i = 0; i < 4; ++i)
            strUri += i <= tBytes ? strDigits[uiBits >> (18 - 6 * i) & 63] : '=';
    }
    return strUri;
}

std::string FillTemplate(std::string_view strTemplate,
                         const std::map<std::string, std::string, std::less<>>& rValues)
{
    std::string strFilled;
    while (true)
    {
        const std::size_t tMark = strTemplate.find("[[");
        const std::size_t tEnd = strTemplate.find("]]", tMark);
        strFilled += strTemplate.substr(0, tMark);
        if (tMark == std::string_view::npos || tEnd == std::string_view::npos) return strFilled;
        if (const auto pValue = rValues.find(strTemplate.substr(tMark + 2, tEnd - tMark - 2));
            pValue != rValues.end())
            strFilled += pValue->second;
        strTemplate.remove_prefix(tEnd + 2);
    }
}

}  // namespace talven
