#include <algorithm>
#include <optional>

#include "Aligning.h"
#include "Command.h"
#include "Halves.h"
#include "Options.h"
#include "Preview.h"
#include "RfactorPlot.h"
#include "RunFacts.h"
#include "RunReport.h"
#include "Series.h"
#include "VolumeOutput.h"
#include "talven/Agreement.h"
#include "talven/AtomicFile.h"
#include "talven/FileImages.h"
#include "talven/MrcReader.h"
#include "talven/Slices.h"
#include "talven/ViewQuality.h"

namespace talven
{
namespace
{

/// `talven reconstruct`.
class CReconstructCommand : public CCommand
{
public:
    void AddOptions(CLI::App& rApp) override;
    bool Run() override;

private:
    bool mMakePlan();
    bool mSuggestParts();
    bool mAlign();
    bool mOpenFiles();
    bool mOpenSameSize(CMrcReader& rReader, const std::string& strPath);
    bool mUpload();
    ImageSource mReadInitial();
    bool mCompute();
    bool mWriteVolume();
    bool mWriteRfactors();
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

    std::string m_strOutput, m_strInitial;
    std::string m_strPreview, m_strPlot, m_strRfactors, m_strReference, m_strReport;
    ReconRequest m_aRequest;
    VolumeForm m_aForm;

    CSeries m_aSeries;
    bool m_bAlign = false;
    CAligning m_aAligning;
    CMrcReader m_aInitial, m_aReference;
    ReconPlan m_aPlan;
    CReconstruction m_aJob{m_aLink, m_aReport};
    CVolumeOutput m_aOutput{m_aJob};
    CHalves m_aHalves{m_aSeries, m_aJob, m_aOutput, m_aReport};
    std::optional<CSlices> m_aViews;
    CAgreement m_aAgreement;
    std::vector<ImageStatistics> m_aPixels;  // of the plan's views
    std::vector<ViewQuality> m_aQuality;     // of the plan's views
    RunReport m_aPage;
    const CLI::App* m_pApp = nullptr;
    double m_dUpload = 0, m_dCompute = 0, m_dDownload = 0;  // seconds
};

void CReconstructCommand::AddOptions(CLI::App& rApp)
{
    m_pApp = &rApp;
    m_aSeries.AddOptions(rApp, m_aRequest);
    AddFile(rApp, "-o,--output", m_strOutput, "The volume, MRC")->required();
    rApp.add_option("--thickness", m_aRequest.iThickness,
                    "Extent of the volume along Z, voxels [that of --from]")
        ->check(CLI::PositiveNumber);
    rApp.add_option("--width", m_aRequest.iWidth, "Extent along X, voxels [the detector's]")
        ->check(CLI::PositiveNumber);
    AddMethod(rApp, m_aRequest, m_strInitial);
    rApp.option_defaults()->group(g_pcAlignment);
    rApp.add_flag("--align", m_bAlign,
                  "Align the raw views first, as talven align does; --tilt-axis is about then")
        ->excludes("--xf");
    m_aAligning.AddOptions(rApp);
    rApp.option_defaults()->group("Options");

    const auto AddResult = [&](const char* pcName, std::string& rPath, const char* pcText)
    { AddFile(rApp, pcName, rPath, pcText)->group("Further results"); };
    AddResult("--preview", m_strPreview, "PNG of the three central slices");
    AddResult("--rfactor-plot", m_strPlot, "PNG of the R-factor after every iteration");
    AddResult("--rfactors", m_strRfactors, "The same as text: iteration,rfactor");
    AddResult("--report", m_strReport,
              "HTML page: slices, R-factors, views that stand out, how it was made");
    AddResult("--reference", m_strReference,
              "Compare the volume with this one: correlation and relative RMS error");
    m_aHalves.AddOption(rApp);
    AddForm(rApp, m_aForm);
    mAddServerOptions(rApp);
    mAddReportOptions(rApp);
}

bool CReconstructCommand::Run()
{
    if (!mMakePlan() || !mOpenFiles()) return false;
    if (!m_aSeries.GetNote().empty()) m_aReport.PrintLine(m_aSeries.GetNote());
    m_aReport.PrintLine(mDescribe());
    if ((!m_bAlign && !mConnect()) || !mUpload() || !mCompute() || !mWriteVolume() ||
        (!m_strPreview.empty() && !WritePreview(m_strPreview, *m_aViews, m_strError)) ||
        !mWriteRfactors())
        return false;
    mSummarise();
    if (m_aJob.GetCutVoxels() > 0)
        m_aReport.PrintLine(Format("%s: %llu voxels would have fallen further", m_strOutput.c_str(),
                                   (unsigned long long)m_aJob.GetCutVoxels()));
    if (!m_strReport.empty() && !mFillPage()) return false;
    const bool bDone = !m_aHalves.IsWanted() || m_aReport.IsEnough() || mMakeHalves();
    return (m_strReport.empty() || mWritePage()) && bDone;
}

bool CReconstructCommand::mMakePlan()
{
    std::string strError;
    if (!mCheck(m_aSeries.Open(), m_aSeries)) return false;
    if (m_aRequest.iThickness == 0)
        return mFail("--thickness is required where no file has it (see --from)");
    const auto Plan = [&]
    {
        return MakeReconPlan(m_aRequest, m_aSeries.GetSize(), m_aSeries.GetAngles(), m_aPlan,
                             strError) ||
               mFail("--" + strError);
    };
    if (!Plan() || (m_bAlign && (!mAlign() || !Plan()))) return false;
    if (m_aPlan.aFilter && !m_strInitial.empty())
        return mFail("--initial-volume: a weighted back projection starts from nothing");
    if (m_aPlan.dTiltX != 0 && !m_strInitial.empty())
        return mFail("--initial-volume: not with --x-tilt, which turns the volume at the end");
    if (!CheckForm(m_aForm, m_aPlan.GetResultSize(), strError)) return mFail("--" + strError);
    return mCheck(m_aHalves.Check(m_aRequest, m_aPlan), m_aHalves) &&
           (mCheckSize(m_aPlan.aSize) || mSuggestParts());
}

/// What is too large as a whole may do in parts.
bool CReconstructCommand::mSuggestParts()
{
    JobSize aPart = m_aPlan.aSize;
    std::string strError;
    while (aPart.iProjY > 1)
    {
        aPart.iProjY = (aPart.iProjY + 1) / 2;
        if (CheckJobSize(aPart, m_aServerOptions.IsHere(), strError))
            return mFail(m_strError +
                         Format("; it can be made in parts: --rows 0:%d and so on", aPart.iProjY));
    }
    return false;
}

/// Turns raw views into views with maps, before anything else is planned.
bool CReconstructCommand::mAlign()
{
    AlignRequest& rAlign = m_aRequest.aAlign;
    if (!rAlign.aMaps.empty() || rAlign.dCentre)
        return mFail("--align: the files or --centre say already how the views lie");
    constexpr int iMost = 32768;  // raw pixels
    if (m_aRequest.iThickness > iMost / rAlign.iBin)
        return mFail(Format("--thickness: with --align at most %d voxels", iMost / rAlign.iBin));
    SeriesAlignRequest& rRequest = m_aAligning.GetRequest();
    rRequest.dTiltAxis = rAlign.dTiltAxis;
    rRequest.iThickness = m_aRequest.iThickness * rAlign.iBin;
    const std::vector<int> viViews = SelectViews(m_aRequest, m_aSeries.GetViewCount());
    if (!mProbe(m_strOutput) || !mConnect() ||
        !mCheck(m_aAligning.Run(m_aLink, m_aReport, m_aSeries.GetSize(), m_aSeries.GetAngles(),
                                viViews, m_aSeries.GetViews(viViews)),
                m_aAligning))
        return false;
    m_aReport.PrintLine("aligned: " + m_aAligning.Describe());
    rAlign.aMaps = m_aAligning.GetMaps();
    rAlign.dTiltAxis = 0;  // the maps turn the views
    LeaveOut(m_aAligning.ListLeftOut(), m_aSeries.GetViewCount(), m_aRequest);
    return true;
}

/// Inputs that must fit the volume, and the outputs: what cannot be written is said before the
/// work.
bool CReconstructCommand::mOpenFiles()
{
    if (!mOpenSameSize(m_aInitial, m_strInitial) || !mOpenSameSize(m_aReference, m_strReference) ||
        !mProbe(m_strPreview) || !mProbe(m_strPlot) || !mProbe(m_strRfactors) ||
        !mProbe(m_strReport))
        return false;
    const JobSize aSize = m_aPlan.GetResultSize();
    if (!m_strPreview.empty() || !m_strReport.empty())
        m_aViews.emplace(aSize.iVolX, aSize.iProjY, aSize.iVolZ).WantCentral();
    m_aOutput.SetUp(m_aForm, aSize, m_aPlan.aAlignment.iBin * m_aSeries.GetPixel());
    return mCheck(m_aOutput.Check(m_strOutput), m_aOutput);
}

bool CReconstructCommand::mOpenSameSize(CMrcReader& rReader, const std::string& strPath)
{
    if (strPath.empty()) return true;
    if (!mCheck(rReader.Open(strPath), rReader)) return false;
    const MrcHeader& rHeader = rReader.GetHeader();
    const JobSize aSize = m_aPlan.GetResultSize();
    const int iRows = m_aPlan.iAllRows;  // of a part, the file of the whole
    if (rHeader.iX == aSize.iVolX && rHeader.iY == iRows && rHeader.iZ == aSize.iVolZ) return true;
    return mFail(Format("%s is %d x %d x %d, the volume is %d x %d x %d", strPath.c_str(),
                        rHeader.iX, rHeader.iY, rHeader.iZ, aSize.iVolX, iRows, aSize.iVolZ));
}

bool CReconstructCommand::mMakeHalves()
{
    return mCheck(
        m_aHalves.Make(m_aRequest, m_aPlan, mGetIterations(), m_strOutput, mReadInitial()),
        m_aHalves);
}

std::string CReconstructCommand::mDescribe() const
{
    const auto [pLow, pHigh] =
        std::minmax_element(m_aPlan.vfAngles.begin(), m_aPlan.vfAngles.end());
    const JobSize& rSize = m_aPlan.aSize;
    return Format(
        "%s%s: %d x %d, %d of %d angles from %g to %g degrees -> volume %d x %d x %d, %s; "
        "the server needs %s of memory",
        m_aSeries.GetPath().c_str(), m_aSeries.GetXray().Describe().c_str(), rSize.iProjX,
        rSize.iProjY, rSize.iProjs, m_aSeries.GetViewCount(), double(*pLow), double(*pHigh),
        rSize.iVolX, rSize.iProjY, m_aPlan.iThickness, m_aPlan.DescribeMethod().c_str(),
        FormatBytes(rSize.GetBytes(m_aServerOptions.EstimateDevices())).c_str());
}

bool CReconstructCommand::mUpload()
{
    const CStopwatch aWatch;
    ImageSource Views = m_aSeries.GetViews(m_aPlan);
    if (mWantsViews()) Views = Measure(Views, m_aPixels);
    const bool bDone = m_aJob.Upload(m_aPlan, Views, mReadInitial());
    m_dUpload = aWatch.GetSeconds();
    return mCheck(bDone, m_aJob);
}

/// The rows of the volume to start from that the server gets.
ImageSource CReconstructCommand::mReadInitial()
{
    return m_strInitial.empty() ? ImageSource() : ReadFrom(m_aInitial, {}, m_aPlan.aSent);
}

bool CReconstructCommand::mCompute()
{
    const CStopwatch aWatch;
    const auto WriteSoFar = [this](int iIterations, std::string& rError)
    {
        return m_aOutput.Write(m_strOutput, m_aPlan.DescribeMethod(iIterations)) ||
               Fail(rError, m_aOutput.GetError());
    };
    const bool bDone = m_aJob.Run(WriteSoFar);
    m_dCompute = aWatch.GetSeconds();
    m_aQuality = JudgeViews(m_aPixels, m_aJob.GetViewResiduals(), m_aPlan.vfAngles);
    return mCheck(bDone, m_aJob);
}

bool CReconstructCommand::mWriteVolume()
{
    const CStopwatch aWatch;
    const ImageSize aSlice = {m_aReference.GetHeader().iX, m_aPlan.aRows.GetCount()};
    std::vector<float> vfReference(aSlice.GetPixels());
    const ImageSource ReadReference = ReadFrom(m_aReference, {}, m_aPlan.aRows);
    const auto Look = [&](int iZ, std::span<const float> fSlice, std::string& rError)
    {
        if (m_aViews) m_aViews->Add(iZ, fSlice);
        if (vfReference.empty()) return true;
        if (!ReadReference(iZ, vfReference, rError)) return false;
        m_aAgreement.Add(fSlice, vfReference);
        return true;
    };
    const bool bDone = m_aOutput.Write(m_strOutput, m_aPlan.DescribeMethod(mGetIterations()), Look);
    m_dDownload = aWatch.GetSeconds();
    return mCheck(bDone, m_aOutput);
}

bool CReconstructCommand::mWriteRfactors()
{
    const std::vector<double>& rRfactors = m_aJob.GetRfactors();
    if (!m_strPlot.empty() &&
        !WriteRfactorPlot(m_strPlot, rRfactors, m_aPlan.DescribeMethod(mGetIterations()),
                          m_strError))
        return false;
    if (m_strRfactors.empty()) return true;
    std::string strText = "iteration,rfactor\n";
    for (std::size_t i = 0; i < rRfactors.size(); ++i)
        strText += Format("%zu,%.6g\n", i + 1, rRfactors[i]);
    return WriteTextFile(m_strRfactors, strText, m_strError);
}

void CReconstructCommand::mSummarise()
{
    const std::vector<double>& rRfactors = m_aJob.GetRfactors();
    std::string strLine =
        Format("%s: upload %s, reconstruction %s, download %s, all %s", m_strOutput.c_str(),
               FormatSeconds(m_dUpload).c_str(), FormatSeconds(m_dCompute).c_str(),
               FormatSeconds(m_dDownload).c_str(), FormatSeconds(m_aTotal.GetSeconds()).c_str());
    if (!rRfactors.empty() && mGetIterations() < m_aPlan.aOptions.iIterations)
        strLine += Format("; ended after %d of %d iterations", mGetIterations(),
                          m_aPlan.aOptions.iIterations);
    if (rRfactors.size() == 1) strLine += Format("; R-factor %.4f", rRfactors[0]);
    if (rRfactors.size() > 1)
        strLine += Format("; R-factor %.4f -> %.4f", rRfactors.front(), rRfactors.back());
    mReport(mMakeJson(), strLine);
    if (!m_strReference.empty())
        m_aReport.PrintLine(Format("%s: correlation %.4f, relative RMS error %.4f",
                                   m_strReference.c_str(), m_aAgreement.GetCorrelation(),
                                   m_aAgreement.GetRelativeError()));
}

Json CReconstructCommand::mMakeJson() const
{
    const JobSize& rSize = m_aPlan.aSize;
    const MrcHeader& rHeader = m_aOutput.GetHeader();
    Json aJson;
    aJson["command"] = "reconstruct";
    aJson["stack"] = {{"file", m_aSeries.GetPath()},
                      {"size", {rSize.iProjX, rSize.iProjY, rSize.iProjs}},
                      {"angles", m_aPlan.vfAngles}};
    if (const std::optional<double> dCentre = m_aSeries.GetXray().GetCentre())
        aJson["stack"]["centre"] = *dCentre;
    aJson["volume"] = {{"file", m_strOutput},   {"size", {rHeader.iX, rHeader.iY, rHeader.iZ}},
                       {"min", rHeader.fMin},   {"max", rHeader.fMax},
                       {"mean", rHeader.fMean}, {"rms", rHeader.fRms}};
    aJson["rows"] = {m_aPlan.aRows.iFirst, m_aPlan.aRows.iEnd};
    aJson["halo"] = m_aPlan.GetHalo();
    aJson["method"] = GetMethodName(m_aRequest);
    if (!m_aJob.GetRfactors().empty())
    {
        aJson["iterations"] = mGetIterations();
        aJson["subset_sizes"] = m_aPlan.aOptions.vuiSetSizes;
        aJson["rfactors"] = m_aJob.GetRfactors();
        aJson["view_residuals"] = m_aJob.GetViewResiduals();
        aJson["rfactor_sums"] = mListSums();
    }
    if (m_bAlign) aJson["align"] = m_aAligning.MakeJson();
    aJson["suspect_views"] = mListSuspects();
    if (m_aPlan.iSmoothInterval > 0)
        aJson["smoothing"] = {{"interval", m_aPlan.iSmoothInterval},
                              {"kernel_size", m_aPlan.aSmoothKernel.iSize}};
    aJson["seconds"] = {{"upload", m_dUpload},
                        {"reconstruct", m_dCompute},
                        {"download", m_dDownload},
                        {"total", m_aTotal.GetSeconds()}};
    if (!m_strReference.empty())
        aJson["reference"] = {{"file", m_strReference},
                              {"correlation", m_aAgreement.GetCorrelation()},
                              {"relative_rms_error", m_aAgreement.GetRelativeError()}};
    return aJson;
}

/// [iteration][view]: sum of |measured - reprojected|, sum of |measured|.
Json CReconstructCommand::mListSums() const
{
    Json aIterations = Json::array();
    for (const std::vector<RfactorSums>& rViews : m_aJob.GetSums())
    {
        Json aViews = Json::array();
        for (const RfactorSums& rSums : rViews) aViews.push_back({rSums.fDifference, rSums.fRaw});
        aIterations.push_back(std::move(aViews));
    }
    return aIterations;
}

Json CReconstructCommand::mListSuspects() const
{
    Json aList = Json::array();
    for (std::size_t i = 0; i < m_aQuality.size(); ++i)
        if (m_aQuality[i].IsSuspect())
            aList.push_back({{"view", m_aPlan.viViews[i] + 1},
                             {"angle", m_aPlan.vfAngles[i]},
                             {"why", DescribeSuspicion(m_aQuality[i])}});
    return aList;
}

/// What the page says about the volume of all views; the halves come later.
bool CReconstructCommand::mFillPage()
{
    m_aPage.strTitle = std::filesystem::path(m_strOutput).filename();
    m_aPage.strSummary = Format("%zu views of %s, %s", m_aPlan.viViews.size(),
                                std::filesystem::path(m_aSeries.GetPath()).filename().c_str(),
                                m_aPlan.DescribeMethod(mGetIterations()).c_str());
    if (mGetIterations() > 0)
        m_aPage.strSummary += Format("; R-factor %.4f", m_aJob.GetRfactors().back());
    m_aPage.vdRfactors = m_aJob.GetRfactors();
    for (std::size_t i = 0; i < m_aQuality.size(); ++i)
        m_aPage.aViews.push_back({m_aPlan.viViews[i] + 1, m_aPlan.vfAngles[i], m_aQuality[i]});
    m_aPage.strWithoutSuspects = SuggestViews(m_aRequest, m_aPlan, m_aQuality);
    m_aPage.strCommand = m_strCommand;
    Facts aVolume = DescribeVolume(m_aOutput.GetHeader());
    if (!m_strReference.empty())
        aVolume.emplace_back(
            "Against the reference",
            Format("correlation %.4f, relative RMS error %.4f", m_aAgreement.GetCorrelation(),
                   m_aAgreement.GetRelativeError()));
    m_aPage.aTables = {{"Geometry", DescribeGeometry(m_aRequest, m_aPlan, m_aSeries.GetViewCount(),
                                                     m_aSeries.GetPixel())},
                       {"Method", DescribeMethod(m_aRequest, m_aPlan, mGetIterations())},
                       {"Volume as written", aVolume},
                       {"Server", DescribeServer(m_aServerOptions, m_aLink)}};
    return DrawPictures(*m_aViews, m_aPage, m_strError) || mFail(m_strReport + ": " + m_strError);
}

bool CReconstructCommand::mWritePage()
{
    Facts aTimes = {{"Upload", FormatSeconds(m_dUpload)},
                    {"Reconstruction", FormatSeconds(m_dCompute)},
                    {"Download", FormatSeconds(m_dDownload)},
                    {"All", FormatSeconds(m_aTotal.GetSeconds())}};
    m_aPage.aTables.insert(m_aPage.aTables.end(), {{"Program", DescribeProgram()},
                                                   {"Time", aTimes},
                                                   {"Files", ListOptions(*m_pApp, true)},
                                                   {"Options given", ListOptions(*m_pApp, false)}});
    std::string strError;  // the halves may have left another
    return WriteTextFile(m_strReport, MakePage(m_aPage), strError) || mFail(strError);
}

}  // namespace

std::unique_ptr<CCommand> MakeReconstruct()
{
    return std::make_unique<CReconstructCommand>();
}

}  // namespace talven
