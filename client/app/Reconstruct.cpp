#include "Reconstruct.h"

#include <algorithm>

#include "Options.h"
#include "RunFacts.h"
#include "talven/AtomicFile.h"
#include "talven/FileImages.h"

namespace talven
{

void CReconstructCommand::AddOptions(CLI::App& rApp)
{
    AddJobOptions(rApp, "-o,--output");
    mAddServerOptions(rApp);
    mAddReportOptions(rApp);
}

void CReconstructCommand::AddJobOptions(CLI::App& rApp, const char* pcOutput)
{
    m_pApp = &rApp;
    m_aSeries.AddOptions(rApp, m_aRequest);
    AddFile(rApp, pcOutput, m_strOutput, "The volume, MRC")->required();
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

    m_aFurther.AddOptions(rApp);
    AddFile(rApp, "--report", m_strReport,
            "HTML page: slices, R-factors, views that stand out, how it was made")
        ->group("Further results");
    m_aHalves.AddOption(rApp);
    AddForm(rApp, m_aForm);
}

bool CReconstructCommand::Run()
{
    if (!mMakePlan() || !mOpenFiles()) return false;
    if (!m_aSeries.GetNote().empty()) m_aReport.PrintLine(m_aSeries.GetNote());
    m_aReport.PrintLine(mDescribe());
    const auto Make = [this] { return mUpload() && mCompute() && mWriteVolume(); };
    if ((!m_bAlign && !mConnect()) || !mWork(Make) ||
        !mCheck(m_aFurther.Write(m_aJob.GetRfactors(), m_aPlan.DescribeMethod(mGetIterations())),
                m_aFurther))
        return false;
    mSummarise();
    if (m_aJob.GetCutVoxels() > 0)
        m_aReport.PrintLine(Format("%s: %llu voxels would have fallen further", m_strOutput.c_str(),
                                   (unsigned long long)m_aJob.GetCutVoxels()));
    if (!m_strReport.empty() && !mFillPage()) return false;
    const bool bDone = !m_aHalves.IsWanted() || m_aReport.IsEnough() || mMakeHalves();
    return (m_strReport.empty() || mWritePage()) && bDone;
}

bool CReconstructCommand::Open()
{
    return mCheck(m_aSeries.Open(), m_aSeries) &&
           (m_aRequest.iThickness > 0 ||
            mFail("--thickness is required where no file has it (see --from)"));
}

bool CReconstructCommand::MakePlan(const std::optional<RowRange>& rRows, ReconPlan& rPlan)
{
    ReconRequest aRequest = m_aRequest;
    aRequest.aRows = rRows;
    std::string strError;
    return MakeReconPlan(aRequest, m_aSeries.GetSize(), m_aSeries.GetAngles(), rPlan, strError) ||
           mFail("--" + strError);
}

const char* CReconstructCommand::FindUncuttable() const
{
    if (m_bAlign) return "--align (see talven align)";
    if (m_aHalves.IsWanted()) return "--halves";
    if (!m_strReport.empty()) return "--report";
    if (m_aRequest.dStopGain > 0) return "--stop-when";
    if (m_aRequest.iCheckpoint > 0) return "--checkpoint";
    if (m_aRequest.aAlign.dTiltX != 0) return "--x-tilt";
    return nullptr;
}

bool CReconstructCommand::mMakePlan()
{
    const auto Plan = [this] { return MakePlan(m_aRequest.aRows, m_aPlan); };
    if (!Open() || !Plan() || (m_bAlign && (!mAlign() || !Plan()))) return false;
    if (m_aPlan.aFilter && !m_strInitial.empty())
        return mFail("--initial-volume: a weighted back projection starts from nothing");
    if (m_aPlan.dTiltX != 0 && !m_strInitial.empty())
        return mFail("--initial-volume: not with --x-tilt, which turns the volume at the end");
    std::string strError;
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
                         Format("; talven batch plan makes it in parts: --rows 0:%d and so on",
                                aPart.iProjY));
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
    const auto Align = [&]
    {
        return mCheck(m_aAligning.Run(m_aLink, m_aReport, m_aSeries.GetSize(),
                                      m_aSeries.GetAngles(), viViews, m_aSeries.GetViews(viViews)),
                      m_aAligning);
    };
    if (!mProbe(m_strOutput) || !mConnect() || !mWork(Align)) return false;
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
    const JobSize aSize = m_aPlan.GetResultSize();
    m_aOutput.SetUp(m_aForm, aSize, GetPixel());
    return (m_strInitial.empty() ||
            OpenSameSize(m_aInitial, m_strInitial, aSize, m_aPlan.iAllRows, m_strError)) &&
           mCheck(m_aFurther.Open(aSize, m_aPlan.aRows, m_aPlan.iAllRows, !m_strReport.empty()),
                  m_aFurther) &&
           mProbe(m_strReport) && mCheck(m_aOutput.Check(m_strOutput), m_aOutput);
}

bool CReconstructCommand::mMakeHalves()
{
    bool bThere = true;  // the server has the views
    const int iIterations = mGetIterations();
    const auto Make = [&]
    {
        const bool bDone =
            (bThere || mUpload()) &&
            mCheck(m_aHalves.Make(m_aRequest, m_aPlan, iIterations, m_strOutput, mReadInitial()),
                   m_aHalves);
        bThere = false;
        return bDone;
    };
    return mWork(Make);
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
    m_aFurther.Begin();
    const auto Look = [this](int iZ, std::span<const float> fSlice, std::string& rError)
    { return m_aFurther.Look(iZ, fSlice, rError); };
    const bool bDone = m_aOutput.Write(m_strOutput, m_aPlan.DescribeMethod(mGetIterations()), Look);
    m_dDownload = aWatch.GetSeconds();
    return mCheck(bDone, m_aOutput);
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
    if (!m_aFurther.GetReference().empty())
        m_aReport.PrintLine(m_aFurther.GetReference() + ": " + m_aFurther.DescribeAgreement());
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
    if (!m_aFurther.GetReference().empty())
        aJson["reference"] = {{"file", m_aFurther.GetReference()},
                              {"correlation", m_aFurther.GetAgreement().GetCorrelation()},
                              {"relative_rms_error", m_aFurther.GetAgreement().GetRelativeError()}};
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
    if (!m_aFurther.GetReference().empty())
        aVolume.emplace_back("Against the reference", m_aFurther.DescribeAgreement());
    m_aPage.aTables = {{"Geometry", DescribeGeometry(m_aRequest, m_aPlan, m_aSeries.GetViewCount(),
                                                     m_aSeries.GetPixel())},
                       {"Method", DescribeMethod(m_aRequest, m_aPlan, mGetIterations())},
                       {"Volume as written", aVolume},
                       {"Server", DescribeServer(m_aServerOptions, m_aLink)}};
    return DrawPictures(*m_aFurther.GetSlices(), m_aPage, m_strError) ||
           mFail(m_strReport + ": " + m_strError);
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

std::unique_ptr<CCommand> MakeReconstruct()
{
    return std::make_unique<CReconstructCommand>();
}

}  // namespace talven
