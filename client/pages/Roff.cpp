#include "Roff.h"

#include <regex>
#include <sstream>

namespace talven
{
namespace
{

/// Bold text, code and links within escaped text.
std::string ConvertInline(std::string strText)
{
    strText = ToRoff(strText);
    strText = std::regex_replace(strText, std::regex(R"(\*\*([^*]+)\*\*)"), R"(\fB$1\fR)");
    strText = std::regex_replace(strText, std::regex("`([^`]+)`"), R"(\fB$1\fR)");
    return std::regex_replace(strText, std::regex(R"(\[([^\]]+)\]\([^)]*\))"), "$1");
}

}  // namespace

std::string ToRoff(std::string_view strText)
{
    std::string strRoff;
    char cBefore = '\n';
    for (const char c : strText)
    {
        if (cBefore == '\n' && (c == '.' || c == '\'')) strRoff += "\\&";
        if (c == '\\')
            strRoff += "\\e";
        else if (c == '-')
            strRoff += "\\-";
        else if (c == '^' || c == '~')
            strRoff += c == '^' ? "\\(ha" : "\\(ti";
        else
            strRoff += c;
        cBefore = c;
    }
    return strRoff;
}

std::string LinesToRoff(std::string_view strLines)
{
    std::string strRoff = ".PP\n.RS 4\n.EX\n" + ToRoff(strLines);
    if (!strRoff.ends_with('\n')) strRoff += '\n';
    return strRoff + ".EE\n.RE\n";
}

std::string MarkdownToRoff(std::string_view strMarkdown)
{
    std::istringstream aLines{std::string(strMarkdown)};
    std::string strRoff, strText, strCode, strLine;
    bool bCode = false, bItem = false;
    const auto EndParagraph = [&]
    {
        // Markup may go on in the next line: a paragraph is converted as a whole.
        if (!strText.empty())
            strRoff += (bItem ? ".IP \\(bu 2\n" : ".PP\n") + ConvertInline(strText);
        strText.clear();
        bItem = false;
    };
    while (std::getline(aLines, strLine))
    {
        if (strLine.starts_with("```"))
        {
            EndParagraph();
            if (bCode) strRoff += LinesToRoff(strCode);
            strCode.clear();
            bCode = !bCode;
        }
        else if (bCode)
            strCode += strLine + '\n';
        else if (strLine.empty())
            EndParagraph();
        else if (strLine.starts_with("- "))
        {
            EndParagraph();
            bItem = true;
            strText = strLine.substr(2) + '\n';
        }
        else
            strText += strLine.substr(bItem ? strLine.find_first_not_of(' ') : 0) + '\n';
    }
    EndParagraph();
    return strRoff;
}

}  // namespace talven
