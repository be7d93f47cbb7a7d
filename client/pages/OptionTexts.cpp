#include "OptionTexts.h"

#include <algorithm>
#include <iterator>
#include <regex>

namespace talven
{
namespace
{

std::vector<std::string> Split(const std::string& strText, char cBetween)
{
    std::vector<std::string> vstrParts;
    for (std::size_t i = 0, iEnd = 0; iEnd != std::string::npos; i = iEnd + 1)
    {
        iEnd = strText.find(cBetween, i);
        vstrParts.push_back(strText.substr(i, iEnd - i));
    }
    return vstrParts;
}

/// Takes apart what the help shows as the type: "N:INT in [1 - 64]", "TEXT:{x,y,z}", "HOST:PORT".
void ReadType(std::string strType, OptionText& rText)
{
    std::smatch aMatch;
    if (std::regex_match(strType, aMatch, std::regex(R"((.+?):\{(.+)\}.*)")))
    {
        strType = aMatch[1].str();
        rText.vstrChoices = Split(aMatch[2].str(), ',');
    }
    else if (std::regex_match(strType, aMatch, std::regex(R"((.+?):\w+ in \[(.+) - (.+)\].*)")))
    {
        strType = aMatch[1].str();
        rText.strRange = aMatch[2].str() + " to " + aMatch[3].str();
    }
    else if (std::regex_match(strType, aMatch, std::regex("(.+):(POSITIVE|NONNEGATIVE|IPV4)")))
    {
        strType = aMatch[1].str();
        if (aMatch[2] == "POSITIVE") rText.strRange = "above 0";
        if (aMatch[2] == "NONNEGATIVE") rText.strRange = "0 or more";
    }
    rText.bFile = strType.starts_with("FILE");
    rText.strValue = strType;
}

OptionText DescribeOption(const CLI::Option& rOption)
{
    OptionText aText;
    for (const std::string& strName : rOption.get_snames())
        aText.vstrNames.push_back("-" + strName);
    for (const std::string& strName : rOption.get_lnames())
        aText.vstrNames.push_back("--" + strName);
    aText.strText = rOption.get_description();
    aText.strDefault = rOption.get_default_str();
    aText.strGroup = rOption.get_group();
    aText.bRequired = rOption.get_required();
    if (rOption.get_items_expected_max() > 0) ReadType(rOption.get_type_name(), aText);
    if (aText.IsPositional()) aText.strValue = rOption.get_name();
    for (const CLI::Option* pOther : rOption.get_excludes())
        aText.vstrExcludes.push_back(pOther->get_name());
    std::ranges::sort(aText.vstrExcludes);
    return aText;
}

CommandText DescribeCommand(const CLI::App& rParser)
{
    CommandText aText{rParser.get_name(), rParser.get_description(), rParser.get_footer(), {}, {}};
    for (const CLI::Option* pOption : rParser.get_options())
    {
        aText.vaOptions.push_back(DescribeOption(*pOption));
        const std::string& rGroup = aText.vaOptions.back().strGroup;
        if (std::ranges::find(aText.vstrGroups, rGroup) == aText.vstrGroups.end())
            aText.vstrGroups.push_back(rGroup);
    }
    return aText;
}

}  // namespace

ProgramText DescribeProgram(const CLI::App& rParser)
{
    ProgramText aText{DescribeCommand(rParser), {}, {}};
    for (const CLI::App* pCommand : rParser.get_subcommands({}))
    {
        const std::vector<const CLI::App*> apOwn = pCommand->get_subcommands({});
        (apOwn.empty() ? aText.vaCommands : aText.vaGroups).push_back(DescribeCommand(*pCommand));
        for (const CLI::App* pOwn : apOwn)
        {
            aText.vaCommands.push_back(DescribeCommand(*pOwn));
            aText.vaCommands.back().strName.insert(0, pCommand->get_name() + " ");
        }
    }
    return aText;
}

std::string CommandText::GetGroup() const
{
    const std::size_t tBlank = strName.find(' ');
    return tBlank == std::string::npos ? "" : strName.substr(0, tBlank);
}

std::string CommandText::GetOwnName() const
{
    return strName.substr(strName.find(' ') + 1);  // npos + 1 is 0
}

std::vector<OptionText> GetSharedOptions(const ProgramText& rText)
{
    std::vector<OptionText> vaOptions;
    std::ranges::copy_if(rText.aProgram.vaOptions, std::back_inserter(vaOptions),
                         [](const OptionText& rOption) { return !rOption.strValue.empty(); });
    return vaOptions;
}

}  // namespace talven
