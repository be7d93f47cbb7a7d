#include "BatchJob.h"

#include <algorithm>
#include <filesystem>

namespace talven
{
namespace
{

bool IsFile(const CLI::Option& rOption)
{
    return rOption.get_type_name() == "FILE";
}

/// Whether an option says what is done with the whole volume when it is there.
bool IsAboutWhole(const CLI::Option& rOption)
{
    const std::string& rGroup = rOption.get_group();
    return rGroup == "Form of the volume" || rGroup == "Further results" ||
           rOption.get_lnames().front() == "output";
}

std::string GetFullPath(const std::string& strPath)
{
    return strPath.empty() ? strPath
                           : std::filesystem::absolute(strPath).lexically_normal().string();
}

/// The two series of --halves are files in one value.
std::string GetFullValue(const CLI::Option& rOption, const std::string& strValue)
{
    const std::size_t tComma = strValue.find(',');
    if (rOption.get_lnames().front() == "halves" && tComma != std::string::npos)
        return GetFullPath(strValue.substr(0, tComma)) + "," +
               GetFullPath(strValue.substr(tComma + 1));
    return IsFile(rOption) ? GetFullPath(strValue) : strValue;
}

void AddArgs(const std::string& strName, const Json& rValue, std::vector<std::string>& rArgs)
{
    if (rValue.is_boolean())
        rArgs.push_back("--" + strName);
    else if (rValue.is_string())
        rArgs.push_back("--" + strName + "=" + rValue.get<std::string>());
    for (const Json& rEach : rValue.is_array() ? rValue : Json::array())
        AddArgs(strName, rEach, rArgs);
}

}  // namespace

bool CBatchJob::Parse(const Json& rOptions, bool bPart, std::vector<std::string> vstrMore)
{
    m_aCommand.AddOptions(m_aParser);
    std::vector<std::string> vstrArgs;
    for (const auto& [rName, rValue] : rOptions.items())
    {
        const CLI::Option* pOption = m_aParser.get_option_no_throw("--" + rName);
        if (pOption == nullptr) return Fail(m_strError, "there is no option --" + Show(rName));
        if (!bPart || !IsAboutWhole(*pOption)) AddArgs(rName, rValue, vstrArgs);
    }
    std::ranges::move(vstrMore, std::back_inserter(vstrArgs));
    std::ranges::reverse(vstrArgs);  // as the parser takes them
    try
    {
        m_aParser.parse(vstrArgs);
    }
    catch (const CLI::ParseError& rError)
    {
        return Fail(m_strError, rError.what());
    }
    return true;
}

std::vector<std::string> CBatchJob::ListInputs() const
{
    std::vector<std::string> vstrFiles;
    for (const CLI::Option* pOption : m_aParser.get_options())
        if (IsFile(*pOption) &&
            (!IsAboutWhole(*pOption) || pOption->get_lnames().front() == "reference"))
            for (const std::string& rFile : pOption->results()) vstrFiles.push_back(rFile);
    return vstrFiles;
}

Json ListGivenOptions(const CLI::App& rApp)
{
    CReconstructCommand aCommand;
    CLI::App aKnown;
    aCommand.AddJobOptions(aKnown, "--output");
    Json aGiven = Json::object();
    for (const CLI::Option* pOption : rApp.get_options())
    {
        if (pOption->count() == 0 || pOption->get_lnames().empty()) continue;
        const std::string& rName = pOption->get_lnames().front();
        if (aKnown.get_option_no_throw("--" + rName) == nullptr) continue;
        if (pOption->get_items_expected_max() == 0)
            aGiven[rName] = true;  // a flag
        else if (pOption->results().size() == 1)
            aGiven[rName] = GetFullValue(*pOption, pOption->results().front());
        else
            for (const std::string& rValue : pOption->results())
                aGiven[rName].push_back(GetFullValue(*pOption, rValue));
    }
    return aGiven;
}

}  // namespace talven
