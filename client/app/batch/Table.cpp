#include "Table.h"

#include <filesystem>
#include <set>

#include "batch/BatchJob.h"
#include "talven/Text.h"

namespace talven
{
namespace
{

/// \return false when a quote is not closed or text stands behind it
bool Split(std::string_view strLine, std::vector<std::string>& rFields)
{
    rFields.assign(1, "");
    bool bQuoted = false, bClosed = false;
    for (std::size_t i = 0; i < strLine.size(); ++i)
    {
        const char c = strLine[i];
        if (bQuoted && c == '"' && strLine.substr(i + 1).starts_with('"'))
            rFields.back() += strLine[++i];
        else if (c == '"' && (bQuoted || rFields.back().empty()))
        {
            bClosed = bQuoted;
            bQuoted = !bQuoted;
        }
        else if (c == ',' && !bQuoted)
        {
            rFields.emplace_back();
            bClosed = false;
        }
        else if (bClosed)
            return false;
        else
            rFields.back() += c;
    }
    return !bQuoted;
}

/// What the options of `talven reconstruct` take.
class CColumns
{
public:
    CColumns() { m_aCommand.AddJobOptions(m_aParser, "--output"); }
    bool IsKnown(const std::string& strName) const { return mFind(strName) != nullptr; }
    /// A field as a value of the manifest; null: not given.
    Json Take(const std::string& strName, const std::string& strField,
              const std::filesystem::path& rFolder) const
    {
        const CLI::Option& rOption = *mFind(strName);
        if (rOption.get_items_expected_max() == 0)  // a flag
            return IsSameWord(strField, "true") || IsSameWord(strField, "yes") || strField == "1"
                       ? Json(true)
                       : Json();
        if (rOption.get_type_name() == "FILE")
            return std::filesystem::absolute(rFolder / strField).lexically_normal().string();
        return strField;
    }

private:
    const CLI::Option* mFind(const std::string& strName) const
    {
        return strName.empty() ? nullptr : m_aParser.get_option_no_throw("--" + strName);
    }
    CReconstructCommand m_aCommand;
    CLI::App m_aParser;
};

}  // namespace

bool ReadTable(const std::string& strPath, std::vector<TableLine>& rLines, std::string& rError)
{
    std::ifstream aFile;
    if (!OpenText(strPath, aFile, rError)) return false;
    const CColumns aColumns;
    const std::filesystem::path aFolder = std::filesystem::path(strPath).parent_path();
    std::vector<std::string> vstrNames, vstrFields;
    int iLine = 0;
    for (std::string strLine; std::getline(aFile, strLine);)
    {
        ++iLine;
        const std::string strWhere = strPath + Format(" line %d: ", iLine);
        if (Trim(strLine).empty()) continue;
        if (!Split(Trim(strLine), vstrFields))
            return Fail(rError, strWhere + "a field in quotes does not end with its quote");
        for (std::string& rField : vstrFields) rField = Trim(rField);
        if (vstrNames.empty())
        {
            vstrNames = vstrFields;
            for (const std::string& rName : vstrNames)
                if (!aColumns.IsKnown(rName))
                    return Fail(rError, strWhere + "\"" + Show(rName) +
                                            "\" is no option of talven reconstruct");
            if (std::set(vstrNames.begin(), vstrNames.end()).size() < vstrNames.size())
                return Fail(rError, strWhere + "two columns of one name");
            continue;
        }
        if (vstrFields.size() != vstrNames.size())
            return Fail(rError, strWhere + Format("%zu fields, the first line has %zu",
                                                  vstrFields.size(), vstrNames.size()));
        rLines.push_back({iLine, Json::object()});
        for (std::size_t i = 0; i < vstrNames.size(); ++i)
            if (Json aValue = vstrFields[i].empty()
                                  ? Json()
                                  : aColumns.Take(vstrNames[i], vstrFields[i], aFolder);
                !aValue.is_null())
                rLines.back().aOptions[vstrNames[i]] = std::move(aValue);
    }
    return !rLines.empty() || Fail(rError, strPath + " has no tomograms");
}

}  // namespace talven
