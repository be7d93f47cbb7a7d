#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Aligning.h"
#include "Command.h"
#include "FurtherResults.h"
#include "Halves.h"
#include "RunReport.h"
#include "Series.h"
#include "VolumeOutput.h"
#include "talven/MrcReader.h"
#include "talven/ViewQuality.h"

namespace talven
{

/// `talven reconstruct`.
class CReconstructCommand : public CCommand
{
public:
    void AddOptions(CLI::App& rApp) override;
    bool Run() override;

    /// The options that say what is made, without those of the server and the report.
    /// \param pcOutput  names of the option for the volume
    void AddJobOptions(CLI::App& rApp, const char* pcOutput);
    /// Reads what comes before the pixels. Run() does it, too.
    [[nodiscard]] bool Open();
    /// The plan for the whole, or for some of its rows.
    [[nodiscard]] bool MakePlan(const std::optional<RowRange>& rRows, ReconPlan& rPlan);
    /// The option that a volume made in parts cannot have; null: none is given.
    const char* FindUncuttable() const;
    const CSeries& GetSeries() const { return m_aSeries; }
    const VolumeForm& GetForm() const { return m_aForm; }
    const std::string& GetOutput() const { return m_strOutput; }
    CFurtherResults& GetFurtherResults() { return m_aFurther; }
    /// Angstrom per voxel; 0: not known.
    double GetPixel() const { return m_aRequest.aAlign.iBin * m_aSeries.GetPixel(); }
    /// What --json tells of the volume that was made.
    Json GetResult() const { return mMakeJson(); }
    /// Whether all iterations were run that were asked for.
    bool IsWhole() const
    {
        return mGetIterations() == m_aPlan.aOptions.iIterations || m_aJob.GetRfactors().empty();
    }

private:
    bool mMakePlan();
    bool mSuggestParts();
    bool mAlign();
    bool mOpenFiles();
    bool mUpload();
    ImageSource mReadInitial();
    bool mCompute();
    bool mWriteVolume();
    bool mMakeHalves();
    int mGetIterations() const { return static_cast<int>(m_aJob.GetRfactors().size()); }
    std::string mDescribe() const;
    bool mWantsViews() const { return !m_strReport.empty() || m_aReportOptions.bJson; }
    void mSummarise();
    Json mMakeJson() const;
    Json mListSums() const;
    Json mListSuspects() const;
    bool mFillPage();
    bool mWritePage();

    std::string m_strOutput, m_strInitial, m_strReport;
    ReconRequest m_aRequest;
    VolumeForm m_aForm;

    CSeries m_aSeries;
    bool m_bAlign = false;
    CAligning m_aAligning;
    CMrcReader m_aInitial;
    ReconPlan m_aPlan;
    CReconstruction m_aJob{m_aLink, m_aReport};
    CVolumeOutput m_aOutput{m_aJob};
    CFurtherResults m_aFurther;
    CHalves m_aHalves{m_aSeries, m_aJob, m_aOutput, m_aReport};
    std::vector<ImageStatistics> m_aPixels;  // of the plan's views
    std::vector<ViewQuality> m_aQuality;     // of the plan's views
    RunReport m_aPage;
    const CLI::App* m_pApp = nullptr;
    double m_dUpload = 0, m_dCompute = 0, m_dDownload = 0;  // seconds
};

}  // namespace talven
