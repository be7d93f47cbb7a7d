#include <cmath>

#include "AlignReport.h"
#include "Aligning.h"
#include "Command.h"
#include "Lists.h"
#include "Options.h"
#include "RunFacts.h"
#include "SeriesFiles.h"
#include "talven/AtomicFile.h"
#include "talven/FileImages.h"
#include "talven/ImageJob.h"
#include "talven/MrcWriter.h"

namespace talven
{
namespace
{

/// `talven align`: writes an .xf file for a raw tilt series.
class CAlign : public CCommand
{
public:
    void AddOptions(CLI::App& rApp) override;
    bool Run() override;

private:
    bool mOpen();
    bool mTakeAxis();
    bool mWrite();
    bool mWritePage();
    /// The raw views, resampled once by the server.
    bool mWriteStack(const std::vector<ViewMap>& rMaps);

    std::string m_strTilts, m_strOutput, m_strStack, m_strReport, m_strAxis;
    ReconRequest m_aSeries;  // what the files say
    CSeriesFiles m_aFiles;
    std::vector<int> m_viViews;  // that take part
    CAligning m_aAligning;
    const CLI::App* m_pApp = nullptr;
    std::unique_ptr<CImageStack> m_pStack;
};

void CAlign::AddOptions(CLI::App& rApp)
{
    m_pApp = &rApp;
    SeriesAlignRequest& rRequest = m_aAligning.GetRequest();
    AddFile(rApp, "--tilts", m_strTilts, "Raw tilt series: MRC, HDF5 or TIFF")->required();
    m_aFiles.AddOptions(rApp, false);
    AddFile(rApp, "-o,--output", m_strOutput, "Alignment to write (.xf)")->required();
    AddFile(rApp, "--stack", m_strStack, "Aligned views to write, MRC");
    AddFile(rApp, "--report", m_strReport,
            "HTML page: places of the views, how well they agree, the tilt axis, how it was made");
    rApp.add_option("--thickness", rRequest.iThickness,
                    "Of the specimen along the beam, about, pixels")
        ->required()
        ->check(CLI::Range(1, 32768));
    rApp.add_option("--axis", m_strAxis,
                    "About, from the +Y axis of the views to the tilt axis, degrees, "
                    "counterclockwise with X to the right and Y up; auto: not known [that of the "
                    ".mdoc]")
        ->type_name("DEG|auto");
    m_aAligning.AddOptions(rApp);
    AddParsed(rApp, "--exclude", "VIEWS", m_aSeries.viExclude, ParseViews,
              "Views to leave out, counted from 1: 3,7-9");
    rApp.add_option("--bins", rRequest.viBins,
                    "Pixels along each edge of the blocks that are compared, one after the other "
                    "[4,2, less for small views]")
        ->delimiter(',')
        ->check(CLI::Range(1, 64))
        ->type_name("N,...");
    rApp.add_option("--limit", rRequest.dLimit, "Farthest that a view may have moved, pixels")
        ->capture_default_str()
        ->check(CLI::Range(1.0, 32768.0));
    mAddServerOptions(rApp);
    mAddReportOptions(rApp);
}

bool CAlign::Run()
{
    if (!mOpen() || !mProbe(m_strOutput) || !mProbe(m_strStack) || !mProbe(m_strReport) ||
        !mConnect())
        return false;
    m_viViews = SelectViews(m_aSeries, m_pStack->GetSections());
    const auto Align = [this]
    {
        return mCheck(m_aAligning.Run(m_aLink, m_aReport, m_pStack->GetSize(), m_aFiles.GetAngles(),
                                      m_viViews, ReadFrom(*m_pStack, m_viViews)),
                      m_aAligning);
    };
    return mWork(Align) && mWrite();
}

bool CAlign::mOpen()
{
    std::string strError;
    m_pStack = OpenStack(m_strTilts, strError);
    if (!m_pStack) return mFail(strError);
    if (!mCheck(m_aFiles.Read(*m_pStack, {}, m_aSeries), m_aFiles) || !mTakeAxis()) return false;
    if (!m_aFiles.GetNote().empty()) m_aReport.PrintLine(m_aFiles.GetNote());
    const int iViews = m_pStack->GetSections();
    if (m_aSeries.viExclude.empty() || m_aSeries.viExclude.back() < iViews) return true;
    return mFail(Format("--exclude: view %d, but %s has %d", m_aSeries.viExclude.back() + 1,
                        m_strTilts.c_str(), iViews));
}

bool CAlign::mTakeAxis()
{
    SeriesAlignRequest& rRequest = m_aAligning.GetRequest();
    rRequest.dTiltAxis = m_aSeries.aAlign.dTiltAxis;
    if (m_strAxis.empty())
        return m_aFiles.HasTiltAxis() ||
               mFail("--axis is required where no .mdoc has it; auto: it is not known");
    if (m_strAxis == "auto")
        rRequest.eAxis = EAxis::eUnknown;
    else if (!ParseFinite(m_strAxis, rRequest.dTiltAxis) || std::fabs(rRequest.dTiltAxis) > 360)
        return mFail("--axis: expected degrees up to 360 or auto, got " + Show(m_strAxis));
    return true;
}

bool CAlign::mWrite()
{
    const std::vector<ViewMap>& rMaps = m_aAligning.GetMaps();
    if ((!m_strStack.empty() && !mWriteStack(rMaps)) || (!m_strReport.empty() && !mWritePage()))
        return false;
    std::string strError;
    if (!WriteXf(m_strOutput, rMaps, strError)) return mFail(strError);
    const ImageSize& rSize = m_pStack->GetSize();
    Json aJson = {{"command", "align"},
                  {"stack", {{"file", m_strTilts}, {"size", {rSize.iX, rSize.iY, rMaps.size()}}}},
                  {"alignment", m_strOutput}};
    aJson.update(m_aAligning.MakeJson());
    aJson["seconds"] = {{"total", m_aTotal.GetSeconds()}};
    mReport(aJson, Format("%s: %s; %s", m_strOutput.c_str(), m_aAligning.Describe().c_str(),
                          FormatSeconds(m_aTotal.GetSeconds()).c_str()));
    return true;
}

bool CAlign::mWritePage()
{
    AlignReport aReport;
    aReport.strTitle = std::filesystem::path(m_strTilts).filename();
    aReport.aRequest = m_aAligning.GetRequest();
    aReport.aRequest.viBins = m_aAligning.GetBins();
    aReport.aRaw = m_pStack->GetSize();
    aReport.iViews = m_pStack->GetSections();
    for (const int i : m_viViews)
    {
        aReport.viNumbers.push_back(i + 1);
        aReport.vfAngles.push_back(m_aFiles.GetAngles()[std::size_t(i)]);
    }
    aReport.aTables = {{"Server", DescribeServer(m_aServerOptions, m_aLink)},
                       {"Program", DescribeProgram()},
                       {"Time", {{"All", FormatSeconds(m_aTotal.GetSeconds())}}},
                       {"Files", ListOptions(*m_pApp, true)},
                       {"Options given", ListOptions(*m_pApp, false)}};
    aReport.strCommand = m_strCommand;
    std::string strPage, strError;
    return (MakeAlignPage(aReport, m_aAligning.GetResult(), strPage, strError) &&
            WriteTextFile(m_strReport, strPage, strError)) ||
           mFail(strError);
}

bool CAlign::mWriteStack(const std::vector<ViewMap>& rMaps)
{
    ViewAlignment aAlignment;
    std::string strError;
    if (!MakeViewAlignment({.aMaps = rMaps}, m_pStack->GetSize(), m_aFiles.GetAngles(), aAlignment,
                           strError))
        return mFail(strError);
    const ImageSize& rAligned = aAlignment.aAligned;
    CMrcWriter aWriter;
    CImageJob aJob(m_aLink, m_aReport);
    if (!mCheckSize({rAligned.iX, rAligned.iY}) ||
        !mCheck(aWriter.Create(m_strStack, rAligned.iX, rAligned.iY, m_pStack->GetSections(),
                               m_pStack->GetPixel(), false, "Talven: aligned"),
                aWriter) ||
        !mCheck(aJob.Open(aAlignment.aBinned, rAligned), aJob))
        return false;
    std::vector<float> vfRaw(m_pStack->GetSize().GetPixels()), vfAligned;
    CPhase aPhase(m_aReport, "transform", m_pStack->GetSections(), sizeof(float) * vfRaw.size());
    for (int i = 0; i < m_pStack->GetSections(); ++i)
    {
        if (!mGoOn() || !mCheck(m_pStack->ReadSection(i, vfRaw), *m_pStack) ||
            !mCheck(aJob.Transform(vfRaw, aAlignment.aMaps[std::size_t(i)], {}, vfAligned), aJob) ||
            !mCheck(aWriter.WriteSection(vfAligned), aWriter))
            return false;
        aPhase.Step(i + 1);
    }
    m_aLink.Close();
    return mCheck(aWriter.Finish(), aWriter);
}

}  // namespace

std::unique_ptr<CCommand> MakeAlign()
{
    return std::make_unique<CAlign>();
}

}  // namespace talven
