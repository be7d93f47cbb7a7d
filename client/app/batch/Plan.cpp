#include <algorithm>
#include <filesystem>
#include <set>

#include "Options.h"
#include "batch/BatchJob.h"
#include "batch/Slabs.h"
#include "batch/Table.h"

namespace talven
{
namespace
{

/// `talven batch plan`.
class CBatchPlan : public CCommand
{
public:
    void AddOptions(CLI::App& rApp) override;
    bool Run() override;

private:
    bool mListVolumes(std::vector<TableLine>& rLines);
    bool mAddVolume(const Json& rOptions);
    bool mStampInputs(const CBatchJob& rJob, BatchVolume& rVolume);
    bool mCut(CReconstructCommand& rJob, const ReconPlan& rWhole, std::vector<RowRange>& rParts);
    bool mFits(const ReconPlan& rPlan, std::string& rError) const;
    bool mAddTasks(CReconstructCommand& rJob, const std::vector<RowRange>& rParts);
    bool mCheckOutputs();
    void mSummarise();

    std::string m_strManifest, m_strTable;
    int m_iSlabs = 0, m_iRowsPerSlab = 0, m_iCores = 0;
    std::uint64_t m_ulMemory = 0;
    CReconstructCommand m_aOptions;  // takes the options, for their help and their checks
    const CLI::App* m_pApp = nullptr;
    CBatchManifest m_aManifest;
};

void CBatchPlan::AddOptions(CLI::App& rApp)
{
    m_pApp = &rApp;
    rApp.option_defaults()->group("Batch");
    AddFile(rApp, "-o,--manifest", m_strManifest, "The plan to write; it never changes then");
    AddFile(rApp, "--table", m_strTable,
            "CSV: a tomogram a line, columns tilts, angles, output and other options by name; "
            "options given here are for all");
    CLI::Option* pSlabs =
        rApp.add_option("--slabs", m_iSlabs, "Parts of each volume [as few as fit the memory]")
            ->check(CLI::PositiveNumber);
    rApp.add_option("--rows-per-slab", m_iRowsPerSlab, "Rows of each part; the last has the rest")
        ->check(CLI::PositiveNumber)
        ->excludes(pSlabs);
    rApp.add_option("--memory", m_ulMemory,
                    "That a task may use, such as 16G [what this machine has free]")
        ->transform(CLI::AsSizeValue(false).description(""))
        ->type_name("SIZE");
    rApp.add_option("--cores", m_iCores, "That a task will have [those of this machine]")
        ->check(CLI::Range(1, 4096));
    rApp.option_defaults()->group("Options");
    mAddReportOptions(rApp);
    m_aOptions.AddJobOptions(rApp, "--output");
    rApp.remove_option(rApp.get_option("--rows"));
    for (CLI::Option* pOption : rApp.get_options()) pOption->required(false);  // a table has them
    rApp.get_option("--manifest")->required();
}

bool CBatchPlan::Run()
{
    std::vector<TableLine> aLines;
    if (std::filesystem::exists(m_strManifest))
        return mFail(m_strManifest + " is there already, and a manifest never changes");
    if (!mProbe(m_strManifest) || !mListVolumes(aLines)) return false;
    for (const TableLine& rLine : aLines)
    {
        if (!mGoOn()) return false;
        if (!mAddVolume(rLine.aOptions))
            return mFail(rLine.iLine > 0
                             ? m_strTable + Format(" line %d: ", rLine.iLine) + m_strError
                             : m_strError);
    }
    if (!mCheckOutputs() || !mCheck(m_aManifest.Write(m_strManifest), m_aManifest)) return false;
    mSummarise();
    return true;
}

bool CBatchPlan::mListVolumes(std::vector<TableLine>& rLines)
{
    const Json aCommon = ListGivenOptions(*m_pApp);
    if (m_strTable.empty())
        rLines.push_back({0, aCommon});
    else if (!ReadTable(m_strTable, rLines, m_strError))
        return false;
    for (TableLine& rLine : rLines)
    {
        Json aAll = aCommon;
        aAll.update(rLine.aOptions);
        rLine.aOptions = aAll;
    }
    return true;
}

bool CBatchPlan::mAddVolume(const Json& rOptions)
{
    CBatchJob aJob;
    if (!mCheck(aJob.Parse(rOptions), aJob)) return false;
    CReconstructCommand& rJob = aJob.GetCommand();
    BatchVolume aVolume;
    ReconPlan aPlan;
    std::vector<RowRange> aParts;
    // What the inputs are is noted before they are read: a change in between shows.
    if (!mStampInputs(aJob, aVolume) || !mCheck(rJob.Open(), rJob) ||
        !mCheck(rJob.MakePlan({}, aPlan), rJob) || !mCut(rJob, aPlan, aParts))
        return false;
    const JobSize aSize = aPlan.GetResultSize();
    if (!CheckForm(rJob.GetForm(), aSize, m_strError)) return mFail("--" + m_strError);
    aVolume.strOutput = rJob.GetOutput();
    aVolume.aOptions = rOptions;
    aVolume.aiSize = {aSize.iVolX, aSize.iProjY, aSize.iVolZ};
    aVolume.dPixel = rJob.GetPixel();
    aVolume.strMethod = aPlan.DescribeMethod();
    aVolume.strAngles = Hash(std::as_bytes(rJob.GetSeries().GetAngles()));
    m_aManifest.aVolumes.push_back(std::move(aVolume));
    return mAddTasks(rJob, aParts);
}

bool CBatchPlan::mStampInputs(const CBatchJob& rJob, BatchVolume& rVolume)
{
    for (const std::string& rPath : rJob.ListInputs())
    {
        rVolume.aInputs.emplace_back();
        if (!MakeStamp(rPath, rVolume.aInputs.back(), m_strError)) return false;
    }
    return true;
}

/// Whether a task may be so large.
bool CBatchPlan::mFits(const ReconPlan& rPlan, std::string& rError) const
{
    const int iDevices =
        std::min(m_iCores > 0 ? m_iCores : ServerOptions().EstimateDevices(), g_iMaxDevices);
    const std::uint64_t ulMost = m_ulMemory > 0 ? m_ulMemory : GetFreeMemory();
    const std::uint64_t ulNeeded = rPlan.aSize.GetBytes(iDevices);
    return CheckJobSize(rPlan.aSize, false, rError) &&
           (ulMost == 0 || ulNeeded <= ulMost ||
            Fail(rError, "a task would need " + FormatBytes(ulNeeded) + " of memory, it may have " +
                             FormatBytes(ulMost)));
}

bool CBatchPlan::mCut(CReconstructCommand& rJob, const ReconPlan& rWhole,
                      std::vector<RowRange>& rParts)
{
    const int iRows = rWhole.iAllRows;
    if (m_iSlabs > iRows) return mFail(Format("--slabs: the volume has %d rows", iRows));
    std::string strError;
    const auto Fits = [&](const RowRange& rRows)
    {
        ReconPlan aPlan;
        if (rRows.GetCount() == iRows) return mFits(rWhole, strError);
        return rJob.MakePlan(rRows, aPlan) ? mFits(aPlan, strError)
                                           : Fail(strError, rJob.GetError());
    };
    rParts = m_iSlabs > 0         ? CutIntoParts(iRows, m_iSlabs)
             : m_iRowsPerSlab > 0 ? CutByRows(iRows, m_iRowsPerSlab)
             : rJob.FindUncuttable() != nullptr && mFits(rWhole, strError) ? CutIntoParts(iRows, 1)
                                                                           : CutToFit(iRows, Fits);
    if (rParts.size() != 1 && rJob.FindUncuttable() != nullptr)
        return mFail(std::string(rJob.FindUncuttable()) +
                     ": not for a volume that is made in parts" +
                     (strError.empty() ? "" : "; " + strError));
    return (!rParts.empty() && std::ranges::all_of(rParts, Fits)) || mFail(strError);
}

bool CBatchPlan::mAddTasks(CReconstructCommand& rJob, const std::vector<RowRange>& rParts)
{
    const std::size_t tVolume = m_aManifest.aVolumes.size() - 1;
    const std::string& rOutput = m_aManifest.aVolumes[tVolume].strOutput;
    const int iCores = m_iCores > 0 ? m_iCores : ServerOptions().EstimateDevices();
    for (const RowRange& rRows : rParts)
    {
        const bool bPart = rParts.size() > 1;
        ReconPlan aPlan;
        if (!mCheck(rJob.MakePlan(bPart ? std::optional(rRows) : std::nullopt, aPlan), rJob))
            return false;
        const std::string strPart =
            rOutput + Format(".parts/%05d-%05d.mrc", rRows.iFirst, rRows.iEnd);
        m_aManifest.aTasks.push_back({tVolume, rRows, bPart ? strPart : rOutput, iCores,
                                      aPlan.aSize.GetBytes(std::min(iCores, g_iMaxDevices))});
    }
    return true;
}

/// Two results of one name would be one.
bool CBatchPlan::mCheckOutputs()
{
    std::set<std::string> aNames;
    for (const BatchVolume& rVolume : m_aManifest.aVolumes)
        for (const char* pcResult : {"output", "preview", "rfactor-plot", "rfactors", "report"})
        {
            const std::string strName = rVolume.aOptions.value(pcResult, "");
            if (!strName.empty() && !aNames.insert(strName).second)
                return mFail("two results would be written to " + strName);
            if (!mProbe(strName)) return false;
        }
    return true;
}

void CBatchPlan::mSummarise()
{
    const auto& rTasks = m_aManifest.aTasks;
    const auto pMost = std::ranges::max_element(rTasks, {}, &BatchTask::ulMemory);
    const bool bParts = rTasks.size() > m_aManifest.aVolumes.size();
    mReport({{"command", "batch plan"},
             {"manifest", m_strManifest},
             {"volumes", m_aManifest.aVolumes.size()},
             {"tasks", rTasks.size()},
             {"memory", pMost->ulMemory}},
            Format("%s: %zu tomogram(s), %zu task(s) of up to %s of memory; each: talven batch "
                   "run %s TASK%s",
                   m_strManifest.c_str(), m_aManifest.aVolumes.size(), rTasks.size(),
                   FormatBytes(pMost->ulMemory).c_str(), m_strManifest.c_str(),
                   bParts ? ", then talven batch join" : ""));
}

}  // namespace

std::unique_ptr<CCommand> MakeBatchPlan()
{
    return std::make_unique<CBatchPlan>();
}

}  // namespace talven
