#include "ManPages.h"

#include <algorithm>

#include "Roff.h"

namespace talven
{
namespace
{

constexpr const char* g_pcEnvironment =
    ".TP\n.B TALVEN_SERVER\n"
    "The server program that is started where no server is named, when it is neither beside\n"
    ".B talven\nnor in\n.I ../libexec/talven\nnor in\n.BR PATH .\n"
    ".TP\n.BR TALVEN_BACKEND \", \" TALVEN_MEMORY_PCT\n"
    "Settings of that server, see\n.BR talven\\-server (1).\n"
    ".TP\n.B TALVEN_SSH\nThe program that ssh:// runs, instead of\n.BR ssh (1).\n"
    ".TP\n.B TMPDIR\nWhere that server's working directory is, and temporary files are, instead "
    "of\n.IR /tmp .\n";

constexpr const char* g_pcExitStatus =
    ".TP\n.B 0\nDone.\n"
    ".TP\n.B 1\nFailed; one line on standard error says why.\n"
    ".TP\n.B 2\nWrong usage.\n"
    ".TP\n.B 75\nFailed, but the same may succeed another time: it was interrupted, a server was "
    "not reached, busy or lost, or there is not enough memory now.\n";

/// "talven-batch-plan"
std::string GetPage(const CommandText& rCommand)
{
    std::string strPage = "talven-" + rCommand.strName;
    std::ranges::replace(strPage, ' ', '-');
    return strPage;
}

/// A section that begins with a paragraph needs no mark of one.
std::string Section(const std::string& strName, std::string strBody)
{
    if (strBody.starts_with(".PP\n")) strBody.erase(0, 4);
    return strBody.empty() ? "" : ".SH " + strName + "\n" + strBody;
}

std::string SeeAlso(const std::string& strPages, const ManSource& rSource)
{
    return Section("SEE ALSO", strPages +
                                   ".BR talven\\-server (1)\n.PP\nThe documents are in\n.IR " +
                                   ToRoff(rSource.strDocuments) + " .\n");
}

std::string Head(const std::string& strPage, const std::string& strText, const ManSource& rSource)
{
    std::string strUpper = strPage;
    std::ranges::transform(strUpper, strUpper.begin(),
                           [](unsigned char c) { return std::toupper(c); });
    return ".\\\" Made from the options of the program and docs/cli.md.\n.TH " + ToRoff(strUpper) +
           " 1 " + rSource.strDate + " \"talven " TALVEN_VERSION "\" \"User Commands\"\n" +
           Section("NAME", ToRoff(strPage) + " \\- " + ToRoff(strText) + "\n");
}

/// Lines of the document from after one that begins so, to before the next command.
std::string Cut(const std::string& strDocument, const std::string& strFrom,
                const std::string& strTo)
{
    const std::size_t tFrom = strDocument.find(strFrom);
    if (tFrom == std::string::npos) return "";
    const std::size_t tText = tFrom + strFrom.size();
    return strDocument.substr(tText, strDocument.find(strTo, tText) - tText);
}

/// "[\fB\-\-bin\fR \fIN\fR]"
std::string ShowUse(const OptionText& rOption)
{
    std::string strUse;
    if (!rOption.IsPositional()) strUse = "\\fB" + ToRoff(rOption.vstrNames.front()) + "\\fR";
    if (!rOption.strValue.empty())
        strUse += (strUse.empty() ? "" : " ") + ("\\fI" + ToRoff(rOption.strValue)) + "\\fR";
    return strUse;
}

std::string Synopsis(const CommandText& rCommand)
{
    std::string strUse = "\\fBtalven " + ToRoff(rCommand.strName) + "\\fR";
    for (const OptionText& rOption : rCommand.vaOptions)
        if (rOption.bRequired && !rOption.IsPositional()) strUse += " " + ShowUse(rOption);
    strUse += " [\\fIOPTIONS\\fR]";
    for (const OptionText& rOption : rCommand.vaOptions)
        if (rOption.IsPositional()) strUse += " " + ShowUse(rOption);
    return strUse + "\n";
}

std::string Join(const std::vector<std::string>& rParts, const char* pcBetween)
{
    std::string strAll;
    for (const std::string& strPart : rParts)
        strAll += (strAll.empty() ? "" : pcBetween) + ("\\fB" + ToRoff(strPart)) + "\\fR";
    return strAll;
}

std::string DescribeOption(const OptionText& rOption)
{
    std::string strText = ".TP\n" + Join(rOption.vstrNames, ", ");
    if (!rOption.strValue.empty())
        strText +=
            (rOption.IsPositional() ? "" : " ") + ("\\fI" + ToRoff(rOption.strValue)) + "\\fR";
    strText += "\n" + ToRoff(rOption.strText) + ".\n";
    if (!rOption.vstrChoices.empty())
        strText += "One of " + Join(rOption.vstrChoices, ", ") + ".\n";
    if (!rOption.strRange.empty()) strText += "Value: " + ToRoff(rOption.strRange) + ".\n";
    if (!rOption.strDefault.empty()) strText += "Default: " + ToRoff(rOption.strDefault) + ".\n";
    if (rOption.bRequired) strText += "Required.\n";
    if (!rOption.vstrExcludes.empty())
        strText += "Not together with " + Join(rOption.vstrExcludes, ", ") + ".\n";
    return strText;
}

std::string DescribeOptions(const CommandText& rCommand)
{
    std::string strAll;
    for (const std::string& strGroup : rCommand.vstrGroups)
    {
        if (strGroup != "Options") strAll += ".SS " + ToRoff(strGroup) + "\n";
        for (const OptionText& rOption : rCommand.vaOptions)
            if (rOption.strGroup == strGroup) strAll += DescribeOption(rOption);
    }
    return strAll;
}

std::string CommandPage(const CommandText& rCommand, const ProgramText& rText,
                        const ManSource& rSource)
{
    const std::size_t tExamples = rCommand.strFooter.find("Example");
    const std::string strProse = rCommand.strFooter.substr(0, tExamples);
    const std::string strExamples =
        tExamples == std::string::npos
            ? ""
            : rCommand.strFooter.substr(rCommand.strFooter.find('\n', tExamples) + 1);
    const std::string strDetails =
        Cut(Cut(rSource.strDocument + "\n## ", "\n## talven " + rCommand.strName + "\n", "\n## "),
            "<!-- end -->\n", "\n## ");
    return Head(GetPage(rCommand), rCommand.strText, rSource) +
           Section("SYNOPSIS", Synopsis(rCommand)) +
           Section("DESCRIPTION", ToRoff(rCommand.strText) + ".\n" + ToRoff(strProse)) +
           Section("OPTIONS",
                   DescribeOptions(rCommand) + ".SS Options of all commands\n" +
                       DescribeOptions({"", "", "", GetSharedOptions(rText), {"Options"}})) +
           Section("DETAILS", MarkdownToRoff(strDetails)) + Section("EXIT STATUS", g_pcExitStatus) +
           Section("ENVIRONMENT", g_pcEnvironment) +
           (strExamples.empty() ? "" : Section("EXAMPLES", LinesToRoff(strExamples))) +
           SeeAlso(".BR talven (1),\n", rSource);
}

std::string ProgramPage(const ProgramText& rText, const ManSource& rSource)
{
    std::string strCommands, strOthers;
    for (const CommandText& rCommand : rText.vaCommands)
    {
        const std::string strPage = "\\fB" + ToRoff(GetPage(rCommand)) + "\\fR(1)";
        strCommands += ".TP\n" + strPage + "\n" + ToRoff(rCommand.strText) + ".\n";
        strOthers += strPage + ",\n";
    }
    const std::size_t tText = rSource.strDocument.find("\n\n");
    const std::string strIntro =
        rSource.strDocument.substr(tText, rSource.strDocument.find("\n## ") - tText);
    return Head("talven", rText.aProgram.strText, rSource) +
           Section("SYNOPSIS", ".B talven\n.I COMMAND\n[\\fIOPTIONS\\fR]\n") +
           Section("DESCRIPTION", MarkdownToRoff(strIntro)) + Section("COMMANDS", strCommands) +
           Section("OPTIONS", DescribeOptions(rText.aProgram)) +
           Section("EXIT STATUS", g_pcExitStatus) + Section("ENVIRONMENT", g_pcEnvironment) +
           SeeAlso(strOthers, rSource);
}

}  // namespace

std::map<std::string, std::string> MakeManPages(const ProgramText& rText, const ManSource& rSource)
{
    std::map<std::string, std::string> aPages{{"talven.1", ProgramPage(rText, rSource)}};
    for (const CommandText& rCommand : rText.vaCommands)
        aPages[GetPage(rCommand) + ".1"] = CommandPage(rCommand, rText, rSource);
    return aPages;
}

}  // namespace talven
