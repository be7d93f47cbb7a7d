#include <algorithm>
#include <cmath>
#include <optional>

#include "Command.h"
#include "GreyImage.h"
#include "Lists.h"
#include "Options.h"
#include "talven/ImageStack.h"

namespace talven
{
namespace
{

constexpr int g_iLeastWide = 60;  // room for a title
constexpr int g_iMostHigh = 16000;
constexpr std::size_t g_tMostSlices = 400;

/// `talven view`.
class CViewCommand : public CCommand
{
public:
    void AddOptions(CLI::App& rApp) override;
    bool Run() override;

private:
    bool mChooseSlices();
    bool mChooseContrast();
    bool mRead();
    bool mDraw();
    void mSummarise() const;

    std::string m_strInput, m_strOutput;
    std::string m_strAxis = "z";
    std::vector<int> m_viSlices;  // from 0; empty at first: the middle one
    std::string m_strContrast = "0.5,99.5";
    int m_iMostWide = 1500;

    std::unique_ptr<CImageStack> m_pStack;
    std::optional<CSlices> m_aSlices;
    std::vector<double> m_vdPercents;
    GreyScale m_aGrey;
    int m_iWidth = 0, m_iHeight = 0;  // of the picture
};

void CViewCommand::AddOptions(CLI::App& rApp)
{
    AddFile(rApp, "input", m_strInput, "Volume or stack, MRC, HDF5 or TIFF")->required();
    AddFile(rApp, "-o,--output", m_strOutput, "The picture, PNG")->required();
    rApp.add_option("--axis", m_strAxis, "The axis across the slices")
        ->check(CLI::IsMember({"x", "y", "z"}))
        ->capture_default_str();
    AddParsed(rApp, "--slices", "SLICES", m_viSlices, ParseViews,
              "Slices counted from 1, such as 3,7-9 [the middle one]");
    rApp.add_option("--contrast", m_strContrast,
                    "Percentiles of the pixels shown that are black and white")
        ->capture_default_str();
    rApp.add_option("--width", m_iMostWide, "Of the picture, pixels at most")
        ->check(CLI::Range(100, 30000))
        ->capture_default_str();
    mAddReportOptions(rApp);
}

bool CViewCommand::Run()
{
    m_pStack = OpenStack(m_strInput, m_strError);
    if (!m_pStack || !mChooseSlices() || !mChooseContrast() || !mRead() || !mDraw()) return false;
    mSummarise();
    return true;
}

bool CViewCommand::mChooseSlices()
{
    const ImageSize& rSize = m_pStack->GetSize();
    const char cAxis = m_strAxis.front();
    m_aSlices.emplace(rSize.iX, rSize.iY, m_pStack->GetSections());
    const int iExtent = m_aSlices->GetExtent(cAxis);
    if (m_viSlices.empty()) m_viSlices = {iExtent / 2};
    if (m_viSlices.back() >= iExtent)
        return mFail(Format("--slices: slice %d, but there are %d along %s", m_viSlices.back() + 1,
                            iExtent, m_strAxis.c_str()));
    if (m_viSlices.size() > g_tMostSlices)
        return mFail(Format("--slices: %zu slices, at most %zu fit into a picture",
                            m_viSlices.size(), g_tMostSlices));
    const ImageSize aSize = m_aSlices->GetSliceSize(cAxis);
    if (std::max(aSize.iX, aSize.iY) > 32767)
        return mFail(Format("a slice of %d x %d is too large for a picture", aSize.iX, aSize.iY));
    for (const int iSlice : m_viSlices) m_aSlices->Want(cAxis, iSlice);
    return true;
}

bool CViewCommand::mChooseContrast()
{
    std::string strError;
    if (!ParseNumbers(m_strContrast, 2, m_vdPercents, strError))
        return mFail("--contrast: " + strError);
    if (m_vdPercents[0] >= 0 && m_vdPercents[0] < m_vdPercents[1] && m_vdPercents[1] <= 100)
        return true;
    return mFail("--contrast: expected two percentiles, the lower one first, found \"" +
                 m_strContrast + "\"");
}

bool CViewCommand::mRead()
{
    const int iSections = m_pStack->GetSections();
    std::vector<float> vfSection(m_pStack->GetSize().GetPixels());
    CPhase aPhase(m_aReport, "reading", iSections, sizeof(float) * vfSection.size());
    for (int z = 0; z < iSections; ++z)
    {
        if (!m_aSlices->Needs(z)) continue;
        if (!mGoOn() || !mCheck(m_pStack->ReadSection(z, vfSection), *m_pStack)) return false;
        m_aSlices->Add(z, vfSection);
        aPhase.Step(z + 1);
    }
    return true;
}

/// The slices in rows, read like a page, as many in a row as make the picture about square.
bool CViewCommand::mDraw()
{
    const std::span<const Slice> aSlices = m_aSlices->Get();
    const auto iCount = static_cast<int>(aSlices.size());
    const int iWidth = aSlices[0].iWidth;
    const int iHeight = aSlices[0].iHeight;
    const double dAspect = double(iHeight) / iWidth;
    const int iColumns =
        std::clamp(static_cast<int>(std::lround(std::sqrt(iCount * dAspect))), 1, iCount);
    const int iRows = (iCount + iColumns - 1) / iColumns;

    double dScale = double(m_iMostWide - g_iGap - iColumns * g_iGap) / iColumns / iWidth;
    dScale = std::min(dScale, double(g_iMostHigh / iRows - g_iTitleHeight - g_iGap) / iHeight);
    if (dScale >= 1) dScale = std::min(std::floor(dScale), 4.0);  // whole factors stay sharp
    if (dScale <= 0)
        return mFail(
            Format("%d slices do not fit into a picture of %d pixels", iCount, m_iMostWide));
    const int iCellWidth = std::max(g_iLeastWide, ScaledExtent(iWidth, dScale)) + g_iGap;
    const int iCellHeight = g_iTitleHeight + ScaledExtent(iHeight, dScale) + g_iGap;
    m_iWidth = g_iGap + iColumns * iCellWidth;
    m_iHeight = g_iGap + iRows * iCellHeight;

    m_aGrey = GreyScale::Find(aSlices, m_vdPercents[0], m_vdPercents[1]);
    const CPicture aPicture(m_iWidth, m_iHeight);
    for (int i = 0; i < iCount; ++i)
    {
        const Slice& rSlice = aSlices[std::size_t(i)];
        DrawSlice(aPicture, rSlice, m_aGrey, g_iGap + i % iColumns * iCellWidth,
                  g_iGap + g_iTitleHeight + i / iColumns * iCellHeight, dScale,
                  Format("%s %d/%d", m_strAxis.c_str(), rSlice.iAt + 1,
                         m_aSlices->GetExtent(rSlice.cAxis)));
    }
    return aPicture.Write(m_strOutput, m_strError);
}

void CViewCommand::mSummarise() const
{
    std::vector<int> viSlices = m_viSlices;
    for (int& rSlice : viSlices) ++rSlice;
    mReport({{"command", "view"},
             {"picture", {{"file", m_strOutput}, {"size", {m_iWidth, m_iHeight}}}},
             {"axis", m_strAxis},
             {"slices", viSlices},
             {"black", m_aGrey.fBlack},
             {"white", m_aGrey.fWhite}},
            Format("%s: %zu slice%s along %s, %d x %d pixels, black %.5g, white %.5g",
                   m_strOutput.c_str(), viSlices.size(), viSlices.size() == 1 ? "" : "s",
                   m_strAxis.c_str(), m_iWidth, m_iHeight, double(m_aGrey.fBlack),
                   double(m_aGrey.fWhite)));
}

}  // namespace

std::unique_ptr<CCommand> MakeView()
{
    return std::make_unique<CViewCommand>();
}

}  // namespace talven
