#include <algorithm>

#include "Completion.h"
#include "talven/Text.h"

namespace talven
{
namespace
{

constexpr const char* g_pcBegin =
    "# Completion of talven for bash, made from its options.\n"
    "_talven()\n"
    "{\n"
    "    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]} cmd='' words='' i\n"
    "    # A value may be given as --option=value, which bash takes for three words.\n"
    "    if [[ $cur == = ]]; then\n"
    "        cur=''\n"
    "    elif [[ $prev == = ]]; then\n"
    "        prev=${COMP_WORDS[COMP_CWORD - 2]}\n"
    "    fi\n"
    "    for ((i = 1; i < COMP_CWORD; ++i)); do\n"
    "        case ${COMP_WORDS[i]} in\n";

constexpr const char* g_pcEnd =
    "    esac\n"
    "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$cur\")\n"
    "}\n"
    "complete -F _talven talven\n";

constexpr const char* g_pcFiles =
    "            compopt -o filenames 2>/dev/null\n"
    "            mapfile -t COMPREPLY < <(compgen -f -- \"$cur\")\n"
    "            return ;;\n";

std::string Join(const std::vector<std::string>& rParts, const std::string& strBetween)
{
    std::string strAll;
    for (const std::string& strPart : rParts)
        strAll += (strAll.empty() ? "" : strBetween) + strPart;
    return strAll;
}

/// What follows an option: patterns "'COMMAND OPTION'" by kind.
struct ValuePatterns
{
    std::vector<std::string> vstrFiles, vstrOthers;
    std::string strChoices;  ///< cases of their own
};

void AddPatterns(const std::string& strCommand, const OptionText& rOption, ValuePatterns& rPatterns)
{
    if (rOption.IsPositional() || rOption.strValue.empty()) return;
    std::vector<std::string> vstrHere;
    for (const std::string& strName : rOption.vstrNames)
        vstrHere.push_back(Format("'%s %s'", strCommand.c_str(), strName.c_str()));
    if (!rOption.vstrChoices.empty())
        rPatterns.strChoices += "        " + Join(vstrHere, " | ") + ") words='" +
                                Join(rOption.vstrChoices, " ") + "' ;;\n";
    else
    {
        auto& rList = rOption.bFile ? rPatterns.vstrFiles : rPatterns.vstrOthers;
        rList.insert(rList.end(), vstrHere.begin(), vstrHere.end());
    }
}

/// The words that may stand where no value is expected.
std::string OfferOptions(const std::string& strCommand, const std::vector<OptionText>& rOptions)
{
    std::vector<std::string> vstrNames;
    bool bFiles = false;
    for (const OptionText& rOption : rOptions)
    {
        vstrNames.insert(vstrNames.end(), rOption.vstrNames.begin(), rOption.vstrNames.end());
        bFiles |= rOption.IsPositional();  // all are paths
    }
    std::string strCase;
    if (bFiles)
        strCase = "        '" + strCommand + " '[!-]* | '" + strCommand + " ')\n" + g_pcFiles;
    return strCase + "        '" + strCommand + " '*) words='" + Join(vstrNames, " ") + "' ;;\n";
}

}  // namespace

std::vector<OptionText> GetOptions(const CommandText& rCommand, const ProgramText& rText)
{
    std::vector<OptionText> vaOptions = rCommand.vaOptions;
    const std::vector<OptionText> vaShared = GetSharedOptions(rText);
    vaOptions.insert(vaOptions.end(), vaShared.begin(), vaShared.end());
    return vaOptions;
}

/// Names of the commands of a group, without it.
std::vector<std::string> ListCommands(const ProgramText& rText, const std::string& strGroup)
{
    std::vector<std::string> vstrNames;
    for (const CommandText& rCommand : rText.vaCommands)
        if (rCommand.GetGroup() == strGroup) vstrNames.push_back(rCommand.GetOwnName());
    return vstrNames;
}

std::string MakeBashCompletion(const ProgramText& rText)
{
    std::vector<std::string> vstrCommands, vstrOwn, vstrGroups, vstrSkip, vstrFirst;
    ValuePatterns aPatterns;
    std::string strOffers;
    for (const OptionText& rOption : rText.aProgram.vaOptions)
    {
        AddPatterns("", rOption, aPatterns);
        if (!rOption.strValue.empty())
            vstrSkip.insert(vstrSkip.end(), rOption.vstrNames.begin(), rOption.vstrNames.end());
        vstrFirst.insert(vstrFirst.end(), rOption.vstrNames.begin(), rOption.vstrNames.end());
    }
    for (const CommandText& rCommand : rText.vaCommands)
    {
        (rCommand.GetGroup().empty() ? vstrCommands : vstrOwn).push_back(rCommand.GetOwnName());
        const std::vector<OptionText> vaOptions = GetOptions(rCommand, rText);
        for (const OptionText& rOption : vaOptions)
            AddPatterns(rCommand.strName, rOption, aPatterns);
        strOffers += OfferOptions(rCommand.strName, vaOptions);
    }
    for (const CommandText& rGroup : rText.vaGroups)
    {
        vstrGroups.push_back(rGroup.strName);
        strOffers += "        '" + rGroup.strName + " '*) words='" +
                     Join(ListCommands(rText, rGroup.strName), " ") + "' ;;\n";
    }
    return g_pcBegin + ("            " + Join(vstrSkip, " | ")) + ") ((++i)) ;;\n            " +
           Join(vstrCommands, " | ") + ") cmd=${cmd:-${COMP_WORDS[i]}}; break ;;\n            " +
           Join(vstrGroups, " | ") + ") cmd=${COMP_WORDS[i]} ;;\n            " +
           Join(vstrOwn, " | ") +
           ") [[ -z $cmd ]] || { cmd+=\" ${COMP_WORDS[i]}\"; break; } ;;\n        esac\n    "
           "done\n" +
           "    case \"$cmd $prev\" in\n        " + Join(aPatterns.vstrFiles, " | ") + ")\n" +
           g_pcFiles + "        " + Join(aPatterns.vstrOthers, " | ") + ") return ;;\n" +
           aPatterns.strChoices +
           "    esac\n    [[ -n $words ]] || case \"$cmd $cur\" in\n        ' -'*) words='" +
           Join(vstrFirst, " ") + "' ;;\n        ' '*) words='" + Join(vstrCommands, " ") + " " +
           Join(vstrGroups, " ") + "' ;;\n" + strOffers + g_pcEnd;
}

}  // namespace talven
