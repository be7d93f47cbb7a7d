#include <algorithm>

#include "Options.h"
#include "batch/TaskFiles.h"

namespace talven
{
namespace
{

/// `talven batch status`.
class CBatchStatus : public CCommand
{
public:
    void AddOptions(CLI::App& rApp) override;
    bool Run() override;

private:
    std::string mDescribe(std::size_t tTask, const TaskState& rState) const;
    Json mMakeJson(std::size_t tTask, const TaskState& rState) const;

    std::string m_strManifest;
    CBatchManifest m_aManifest;
};

void CBatchStatus::AddOptions(CLI::App& rApp)
{
    AddFile(rApp, "manifest", m_strManifest, "The plan")->required();
    mAddReportOptions(rApp);
}

bool CBatchStatus::Run()
{
    if (!mCheck(m_aManifest.Read(m_strManifest), m_aManifest)) return false;
    const std::vector<TaskState> aStates = ReadStates(m_aManifest);
    const auto Count = [&](const char* pcName)
    {
        return std::ranges::count_if(aStates, [&](const TaskState& rState)
                                     { return rState.GetName() == std::string_view(pcName); });
    };
    Json aTasks = Json::array();
    for (std::size_t i = 0; i < aStates.size(); ++i)
    {
        m_aReport.PrintLine(mDescribe(i, aStates[i]));
        aTasks.push_back(mMakeJson(i, aStates[i]));
    }
    mReport({{"command", "batch status"},
             {"manifest", m_strManifest},
             {"done", Count("done")},
             {"failed", Count("failed")},
             {"missing", Count("missing")},
             {"tasks", aTasks}},
            Format("%s: %zu task(s), %td done, %td failed, %td missing", m_strManifest.c_str(),
                   aStates.size(), Count("done"), Count("failed"), Count("missing")));
    return true;
}

std::string CBatchStatus::mDescribe(std::size_t tTask, const TaskState& rState) const
{
    std::string strLine = Format("%4zu  %-7s  %s", tTask, rState.GetName(),
                                 m_aManifest.Describe(m_aManifest.aTasks[tTask]).c_str());
    if (rState.aResult.is_object() && rState.bDone && rState.aResult.contains("seconds"))
        strLine += "; " + rState.aResult.value("host", "") + ", " +
                   FormatSeconds(rState.aResult.value("seconds", 0.0));
    if (rState.iFailures > 0)
        strLine +=
            Format("; %d failed attempt(s), the last: ", rState.iFailures) + rState.strLastError;
    return strLine;
}

Json CBatchStatus::mMakeJson(std::size_t tTask, const TaskState& rState) const
{
    const BatchTask& rTask = m_aManifest.aTasks[tTask];
    Json aJson = {{"task", tTask},
                  {"state", rState.GetName()},
                  {"output", rTask.strOutput},
                  {"rows", {rTask.aRows.iFirst, rTask.aRows.iEnd}},
                  {"cores", rTask.iCores},
                  {"memory", rTask.ulMemory},
                  {"failures", rState.iFailures}};
    if (rState.iFailures > 0) aJson["error"] = rState.strLastError;
    for (const char* pcName : {"host", "attempt", "finished", "seconds"})
        if (rState.bDone && rState.aResult.is_object() && rState.aResult.contains(pcName))
            aJson[pcName] = rState.aResult[pcName];
    return aJson;
}

}  // namespace

std::unique_ptr<CCommand> MakeBatchStatus()
{
    return std::make_unique<CBatchStatus>();
}

}  // namespace talven
