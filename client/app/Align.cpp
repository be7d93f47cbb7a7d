#include <algorithm>
#include <cmath>

#include "Command.h"
#include "talven/Angles.h"
#include "talven/CoarseAlign.h"
#include "talven/ImageJob.h"
#include "talven/ImageStack.h"
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
    bool mReadAngles();
    /// All views, as means of blocks of pixels.
    bool mReadViews(const ImageSize& rBinned, std::vector<float>& rViews);
    bool mWrite(const ImageSize& rBinned, const std::vector<CoarseView>& rViews);
    /// The raw views, resampled once by the server.
    bool mWriteStack(const std::vector<ViewMap>& rMaps);

    std::string m_strTilts, m_strAngles, m_strOutput, m_strStack;
    double m_dAxis = 0;
    int m_iBin = 4;
    double m_dLimit = 80;

    std::unique_ptr<CImageStack> m_pStack;
    std::vector<float> m_vfAngles;
};

void CAlign::AddOptions(CLI::App& rApp)
{
    rApp.add_option("--tilts", m_strTilts, "Raw tilt series: MRC, HDF5 or TIFF")
        ->required()
        ->type_name("FILE");
    rApp.add_option("--angles", m_strAngles,
                    "Tilt angles, degrees, one per line (.tlt, .rawtlt) [those of the stack]")
        ->type_name("FILE");
    rApp.add_option("-o,--output", m_strOutput, "Alignment to write (.xf)")
        ->required()
        ->type_name("FILE");
    rApp.add_option("--stack", m_strStack, "Aligned views to write, MRC")->type_name("FILE");
    rApp.add_option(
            "--axis", m_dAxis,
            "From the +Y axis of the views to the tilt axis, degrees, counterclockwise with "
            "X to the right and Y up")
        ->required()
        ->check(CLI::Range(-360.0, 360.0));
    rApp.add_option("--bins", m_iBin, "Pixels along each edge of the blocks that are compared")
        ->capture_default_str()
        ->check(CLI::Range(1, 64));
    rApp.add_option("--limit", m_dLimit, "Farthest that a view may have moved, pixels")
        ->capture_default_str()
        ->check(CLI::Range(1.0, 32768.0));
    mAddServerOptions(rApp);
    mAddReportOptions(rApp);
}

bool CAlign::Run()
{
    std::string strError;
    m_pStack = OpenStack(m_strTilts, strError);
    if (!m_pStack) return mFail(strError);
    const ImageSize& rSize = m_pStack->GetSize();
    const ImageSize aBinned = {rSize.iX / m_iBin, rSize.iY / m_iBin};
    constexpr int iLeast = 16;
    if (aBinned.iX < iLeast || aBinned.iY < iLeast)
        return mFail(Format("--bins %d: views of %d x %d make %d x %d, at least %d x %d", m_iBin,
                            rSize.iX, rSize.iY, aBinned.iX, aBinned.iY, iLeast, iLeast));
    if (!mReadAngles() || !mProbe(m_strOutput) || !mProbe(m_strStack)) return false;
    std::vector<float> vfViews;
    if (!mReadViews(aBinned, vfViews)) return false;

    const CoarseRequest aRequest = {.dTiltAxis = m_dAxis,
                                    .iLimit = int(std::ceil(m_dLimit / m_iBin))};
    CPhase aPhase(m_aReport, "align", int(m_vfAngles.size()), 0);
    std::vector<CoarseView> vViews;
    const auto GoOn = [&](int iDone)
    {
        aPhase.Step(iDone);
        return mGoOn();
    };
    return AlignCoarsely(aRequest, aBinned, m_vfAngles, vfViews, GoOn, vViews) &&
           mWrite(aBinned, vViews);
}

bool CAlign::mReadAngles()
{
    std::string strError;
    if (!m_strAngles.empty())
    {
        if (!ReadAngles(m_strAngles, m_vfAngles, strError)) return mFail(strError);
    }
    else if (!mCheck(m_pStack->ReadAngles(m_vfAngles), *m_pStack))
        return false;
    else if (m_vfAngles.empty())
        return mFail(m_strTilts + ": no angles in the file: --angles must be given");
    if (int(m_vfAngles.size()) != m_pStack->GetSections())
        return mFail(Format("%zu angles, but %s has %d views", m_vfAngles.size(),
                            m_strTilts.c_str(), m_pStack->GetSections()));
    return (CheckDegrees(m_vfAngles, strError) && CheckCoarseAngles(m_vfAngles, strError)) ||
           mFail("angles: " + strError);
}

bool CAlign::mReadViews(const ImageSize& rBinned, std::vector<float>& rViews)
{
    const std::size_t tPixels = rBinned.GetPixels();
    std::vector<float> vfView(m_pStack->GetSize().GetPixels());
    rViews.resize(tPixels * m_vfAngles.size());
    CPhase aPhase(m_aReport, "read", m_pStack->GetSections(), sizeof(float) * vfView.size());
    for (int i = 0; i < m_pStack->GetSections(); ++i)
    {
        if (!mGoOn() || !mCheck(m_pStack->ReadSection(i, vfView), *m_pStack)) return false;
        BinImage(vfView, m_pStack->GetSize(), m_iBin,
                 std::span(rViews).subspan(std::size_t(i) * tPixels, tPixels));
        aPhase.Step(i + 1);
    }
    return true;
}

bool CAlign::mWrite(const ImageSize& rBinned, const std::vector<CoarseView>& rViews)
{
    // Blocks leave over some pixels at the right and at the top: their middle is another.
    const ImageSize& rSize = m_pStack->GetSize();
    const double dMiddleX = 0.5 * (m_iBin * rBinned.iX - rSize.iX);
    const double dMiddleY = 0.5 * (m_iBin * rBinned.iY - rSize.iY);
    std::vector<ViewMap> vMaps;
    Json aShifts = Json::array(), aCorrelations = Json::array(), aLost = Json::array();
    double dMost = 0;
    for (const CoarseView& r : rViews)
    {
        const CoarseView aRaw = {m_iBin * r.dX + dMiddleX, m_iBin * r.dY + dMiddleY};
        ViewMap& rMap = vMaps.emplace_back(MakeMap(aRaw, m_dAxis));
        for (double* pdShift : {&rMap.dX, &rMap.dY})  // as the file has it
            *pdShift = std::round(1000 * *pdShift) / 1000;
        aShifts.push_back({-aRaw.dX, -aRaw.dY});
        aCorrelations.push_back(r.dCorrelation);
        dMost = std::max(dMost, std::hypot(aRaw.dX, aRaw.dY));
        if (!r.bGood) aLost.push_back(&r - rViews.data());
    }
    if (!m_strStack.empty() && !mWriteStack(vMaps)) return false;
    std::string strError;
    if (!WriteXf(m_strOutput, vMaps, strError)) return mFail(strError);
    const CoarseView& rWorst = *std::ranges::min_element(rViews, {}, &CoarseView::dCorrelation);
    mReport({{"command", "align"},
             {"stack", {{"file", m_strTilts}, {"size", {rSize.iX, rSize.iY, rViews.size()}}}},
             {"alignment", m_strOutput},
             {"axis", m_dAxis},
             {"bin", m_iBin},
             {"shifts", aShifts},
             {"correlations", aCorrelations},
             {"lost_views", aLost}},
            Format("%s: %zu views moved by up to %.1f pixels; lowest correlation %.2f in view %td; "
                   "%zu lost; %s",
                   m_strOutput.c_str(), rViews.size(), dMost, rWorst.dCorrelation,
                   &rWorst - rViews.data(), aLost.size(),
                   FormatSeconds(m_aTotal.GetSeconds()).c_str()));
    return true;
}

bool CAlign::mWriteStack(const std::vector<ViewMap>& rMaps)
{
    ViewAlignment aAlignment;
    std::string strError;
    if (!MakeViewAlignment({.aMaps = rMaps}, m_pStack->GetSize(), m_vfAngles, aAlignment, strError))
        return mFail(strError);
    const ImageSize& rAligned = aAlignment.aAligned;
    CMrcWriter aWriter;
    CImageJob aJob(m_aLink, m_aReport);
    if (!mCheckSize({rAligned.iX, rAligned.iY}) || !mConnect() ||
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
