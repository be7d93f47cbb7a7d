#include "Completion.h"

namespace talven
{
namespace
{

std::string Quote(const std::string& strText)
{
    std::string strQuoted = "'";
    for (const char c : strText)
    {
        if (c == '\'' || c == '\\') strQuoted += '\\';
        strQuoted += c;
    }
    return strQuoted + "'";
}

/// \param strBegin  the command with its condition
std::string Describe(const std::string& strBegin, const OptionText& rOption)
{
    if (rOption.IsPositional()) return strBegin + " -F\n";
    std::string strLine = strBegin;
    for (const std::string& strName : rOption.vstrNames)
        strLine +=
            strName.starts_with("--") ? " -l " + strName.substr(2) : " -s " + strName.substr(1);
    if (rOption.bFile)
        strLine += " -r -F";
    else if (!rOption.strValue.empty())
        strLine += " -x";
    if (!rOption.vstrChoices.empty())
    {
        std::string strChoices;
        for (const std::string& strChoice : rOption.vstrChoices)
            strChoices += (strChoices.empty() ? "" : " ") + strChoice;
        strLine += " -a " + Quote(strChoices);
    }
    return strLine + " -d " + Quote(rOption.strText) + "\n";
}

}  // namespace

std::string MakeFishCompletion(const ProgramText& rText)
{
    std::string strAll =
        "# Completion of talven for fish, made from its options.\n"
        "complete -c talven -f\n";
    const std::string strNone = "complete -c talven -n __fish_use_subcommand";
    for (const OptionText& rOption : rText.aProgram.vaOptions) strAll += Describe(strNone, rOption);
    for (const CommandText& rGroup : rText.vaGroups)
        strAll += strNone + " -a " + rGroup.strName + " -d " + Quote(rGroup.strText) + "\n";
    for (const CommandText& rCommand : rText.vaCommands)
    {
        std::string strHere = "complete -c talven -n '__fish_seen_subcommand_from ";
        if (const std::string strGroup = rCommand.GetGroup(); strGroup.empty())
            strAll += strNone + " -a " + rCommand.strName + " -d " + Quote(rCommand.strText) + "\n";
        else
        {
            strHere += strGroup;
            strAll += strHere + "; and not __fish_seen_subcommand_from";
            for (const std::string& strName : ListCommands(rText, strGroup))
                strAll += " " + strName;
            strAll += "' -a " + rCommand.GetOwnName() + " -d " + Quote(rCommand.strText) + "\n";
            strHere += "; and __fish_seen_subcommand_from ";
        }
        strHere += rCommand.GetOwnName() + "'";
        for (const OptionText& rOption : GetOptions(rCommand, rText))
            strAll += Describe(strHere, rOption);
    }
    return strAll;
}

}  // namespace talven
