#include "Completion.h"
#include "talven/Text.h"

namespace talven
{
namespace
{

/// Text within single quotes and within [] of an entry of _arguments.
std::string Escape(const std::string& strText)
{
    std::string strEscaped;
    for (const char c : strText)
    {
        if (c == '\'')
            strEscaped += "'\\''";
        else
        {
            if (c == '[' || c == ']' || c == ':' || c == '\\') strEscaped += '\\';
            strEscaped += c;
        }
    }
    return strEscaped;
}

std::string DescribeValue(const OptionText& rOption)
{
    if (rOption.strValue.empty()) return "";
    std::string strValue = ":" + Escape(rOption.strValue) + ":";
    if (rOption.bFile || rOption.IsPositional()) return strValue + "_files";
    if (rOption.vstrChoices.empty()) return strValue;
    strValue += "(";
    for (const std::string& strChoice : rOption.vstrChoices) strValue += strChoice + " ";
    strValue.back() = ')';
    return strValue;
}

/// Arguments of _arguments, one a line: '(-o --output)'{-o,--output}'[text]:FILE:_files'
std::string DescribeArguments(const std::vector<OptionText>& rOptions, const std::string& strIndent)
{
    std::string strAll;
    int iPositional = 0;
    for (const OptionText& rOption : rOptions)
    {
        strAll += " \\\n" + strIndent;
        if (rOption.IsPositional())
        {
            strAll += Format("'%d", ++iPositional) + DescribeValue(rOption) + "'";
            continue;
        }
        std::string strOthers, strNames;
        for (const std::string& strName : rOption.vstrNames)
        {
            const bool bEquals = strName.starts_with("--") && !rOption.strValue.empty();
            strOthers += (strOthers.empty() ? "" : " ") + strName;
            strNames += (strNames.empty() ? "" : ",") + strName + (bEquals ? "=" : "");
        }
        for (const std::string& strName : rOption.vstrExcludes) strOthers += " " + strName;
        if (rOption.vstrNames.size() > 1)
        {
            strNames.insert(0, "{");
            strNames += "}";
        }
        strAll += Format("'(%s)'%s'[%s]%s'", strOthers.c_str(), strNames.c_str(),
                         Escape(rOption.strText).c_str(), DescribeValue(rOption).c_str());
    }
    return strAll;
}

/// An entry of _describe.
std::string ListCommand(const std::string& strName, const CommandText& rCommand)
{
    return "            '" + strName + ":" + Escape(rCommand.strText) + "'\n";
}

/// The case of one command.
std::string DescribeCommand(const CommandText& rCommand, const ProgramText& rText)
{
    return "            " + rCommand.GetOwnName() + ")\n                _arguments" +
           DescribeArguments(GetOptions(rCommand, rText), "                    ") + " ;;\n";
}

/// The case of a group: its first word is the command then.
std::string DescribeGroup(const CommandText& rGroup, const ProgramText& rText)
{
    std::string strCommands, strCases;
    for (const CommandText& rCommand : rText.vaCommands)
    {
        if (rCommand.GetGroup() != rGroup.strName) continue;
        strCommands += ListCommand(rCommand.GetOwnName(), rCommand);
        strCases += DescribeCommand(rCommand, rText);
    }
    return "            " + rGroup.strName +
           ")\n            if (( CURRENT == 2 )); then\n            local -a own=(\n" +
           strCommands +
           "            )\n            _describe command own\n            else\n"
           "            shift words; (( --CURRENT ))\n            case $words[1] in\n" +
           strCases + "            esac\n            fi ;;\n";
}

}  // namespace

std::string MakeZshCompletion(const ProgramText& rText)
{
    std::string strCommands, strCases;
    for (const CommandText& rCommand : rText.vaCommands)
    {
        if (!rCommand.GetGroup().empty()) continue;
        strCommands += ListCommand(rCommand.strName, rCommand);
        strCases += DescribeCommand(rCommand, rText);
    }
    for (const CommandText& rGroup : rText.vaGroups)
    {
        strCommands += ListCommand(rGroup.strName, rGroup);
        strCases += DescribeGroup(rGroup, rText);
    }
    return "#compdef talven\n# Completion of talven for zsh, made from its options.\n"
           "_talven() {\n"
           "    local curcontext=$curcontext state line\n"
           "    _arguments -C" +
           DescribeArguments(rText.aProgram.vaOptions, "        ") +
           " \\\n        '1:command:->command' '*::options:->options' && return\n"
           "    case $state in\n    command)\n        local -a commands=(\n" +
           strCommands +
           "        )\n        _describe command commands ;;\n"
           "    options)\n        case $line[1] in\n" +
           strCases + "        esac ;;\n    esac\n}\n_talven \"$@\"\n";
}

}  // namespace talven
