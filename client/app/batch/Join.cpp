#include <filesystem>

#include "Options.h"
#include "batch/BatchJob.h"
#include "batch/PartFiles.h"
#include "batch/TaskFiles.h"

namespace talven
{
namespace
{

/// `talven batch join`.
class CBatchJoin : public CCommand
{
public:
    void AddOptions(CLI::App& rApp) override;
    bool Run() override;

private:
    bool mCheckTasks(const std::vector<TaskState>& rStates);
    bool mJoin(std::size_t tVolume);
    bool mWrite(std::size_t tVolume, CReconstructCommand& rJob, CPartFiles& rParts);

    std::string m_strManifest;
    bool m_bRemove = false;
    CBatchManifest m_aManifest;
    Json m_aJoined = Json::array();
};

void CBatchJoin::AddOptions(CLI::App& rApp)
{
    AddFile(rApp, "manifest", m_strManifest, "The plan")->required();
    rApp.add_flag("--remove-parts", m_bRemove, "Remove the parts when their volume is written");
    mAddReportOptions(rApp);
}

bool CBatchJoin::Run()
{
    if (!mCheck(m_aManifest.Read(m_strManifest), m_aManifest) ||
        !mCheckTasks(ReadStates(m_aManifest)))
        return false;
    for (std::size_t i = 0; i < m_aManifest.aVolumes.size(); ++i)
        if (!mJoin(i)) return false;
    mReport({{"command", "batch join"}, {"manifest", m_strManifest}, {"joined", m_aJoined}},
            Format("%s: %zu volume(s) complete, %zu joined now", m_strManifest.c_str(),
                   m_aManifest.aVolumes.size(), m_aJoined.size()));
    return true;
}

bool CBatchJoin::mCheckTasks(const std::vector<TaskState>& rStates)
{
    std::string strMissing;
    for (std::size_t i = 0; i < rStates.size(); ++i)
        if (!rStates[i].bDone)
            strMissing += (strMissing.empty() ? "" : ", ") + Format("task %zu (", i) +
                          m_aManifest.Describe(m_aManifest.aTasks[i]) + ")";
    return strMissing.empty() || mFail("missing: " + strMissing);
}

bool CBatchJoin::mJoin(std::size_t tVolume)
{
    const BatchVolume& rVolume = m_aManifest.aVolumes[tVolume];
    Json aResult;
    std::vector<const BatchTask*> apTasks;
    for (const BatchTask& rTask : m_aManifest.aTasks)
        if (rTask.tVolume == tVolume && m_aManifest.IsPart(rTask)) apTasks.push_back(&rTask);
    const bool bJoined = apTasks.empty() || FindResult(m_aManifest, rVolume.strOutput, -1, aResult);
    CBatchJob aJob;
    CPartFiles aParts(rVolume);
    if (!bJoined && (!mCheck(aJob.Parse(rVolume.aOptions), aJob) ||
                     !mCheck(aParts.Open(m_aManifest, apTasks), aParts) ||
                     !mWrite(tVolume, aJob.GetCommand(), aParts)))
        return false;
    if (!apTasks.empty()) RemoveTemporary(rVolume.strOutput + ".parts");
    if (!apTasks.empty() && m_bRemove) RemoveParts(apTasks);
    return true;
}

bool CBatchJoin::mWrite(std::size_t tVolume, CReconstructCommand& rJob, CPartFiles& rParts)
{
    const BatchVolume& rVolume = m_aManifest.aVolumes[tVolume];
    CFurtherResults& rFurther = rJob.GetFurtherResults();
    CVolumeOutput aOutput([&](const ImageSink& rSlices, std::string& rError)
                          { return rParts.Read(m_aReport, rSlices, rError); });
    const auto Look = [&](int iZ, std::span<const float> fSlice, std::string& rError)
    { return rFurther.Look(iZ, fSlice, rError) || Fail(rError, rFurther.GetError()); };
    aOutput.SetUp(rJob.GetForm(), rParts.GetSize(), rVolume.dPixel);
    const int iRows = rVolume.aiSize[1];
    if (!mCheck(rFurther.Open(rParts.GetSize(), {0, iRows}, iRows), rFurther) ||
        !mCheck(aOutput.Write(rVolume.strOutput, rVolume.strMethod, Look), aOutput) ||
        !mCheck(rFurther.Write(rParts.GetRfactors(), rVolume.strMethod), rFurther))
        return false;
    const MrcHeader& rHeader = aOutput.GetHeader();
    Json aResult = {{"file", rVolume.strOutput},
                    {"host", GetHostName()},
                    {"finished", GetTimeNow()},
                    {"volume",
                     {{"size", {rHeader.iX, rHeader.iY, rHeader.iZ}},
                      {"min", rHeader.fMin},
                      {"max", rHeader.fMax},
                      {"mean", rHeader.fMean},
                      {"rms", rHeader.fRms}}},
                    {"rfactors", rParts.GetRfactors()},
                    {"rfactor_sums", rParts.GetSums()}};
    if (!rFurther.GetReference().empty())
    {
        aResult["reference"] = {{"file", rFurther.GetReference()},
                                {"correlation", rFurther.GetAgreement().GetCorrelation()},
                                {"relative_rms_error", rFurther.GetAgreement().GetRelativeError()}};
        m_aReport.PrintLine(rFurther.GetReference() + ": " + rFurther.DescribeAgreement());
    }
    m_aJoined.push_back(aResult);
    return WriteResult(m_aManifest, rVolume.strOutput, -1, aResult, m_strError);
}

}  // namespace

std::unique_ptr<CCommand> MakeBatchJoin()
{
    return std::make_unique<CBatchJoin>();
}

}  // namespace talven
