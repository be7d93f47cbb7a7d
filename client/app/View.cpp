#include "View.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <vector>

#include "GreyImage.h"
#include "Interrupt.h"
#include "Lists.h"
#include "talven/MrcReader.h"

namespace talven
{
namespace
{

constexpr int g_iGap = 14;        // between the slices and around them
constexpr int g_iLeastWide = 60;  // room for a title
constexpr int g_iMostHigh = 16000;
constexpr std::size_t g_tMostSlices = 400;

/// One run of the command.
class CViewRun
{
public:
    explicit CViewRun(const ViewArgs& rArgs) : m_aArgs(rArgs), m_aReport(rArgs.aReport) {}
    bool Run();
    const std::string& GetError() const { return m_strError; }

private:
    bool mChooseSlices();
    bool mChooseContrast();
    bool mReadAlongZ();
    bool mReadAcross();
    bool mDraw();
    void mSummarise() const;
    bool mFail(const std::string& strError)
    {
        m_strError = strError;
        return false;
    }

    const ViewArgs& m_aArgs;
    CReport m_aReport;
    CMrcReader m_aReader;
    int m_iExtent = 0;                // along the axis
    int m_iWidth = 0, m_iHeight = 0;  // of a slice
    std::vector<int> m_viSlices;
    std::vector<std::vector<float>> m_avfSlices;
    std::vector<double> m_vdPercents;
    GreyScale m_aGrey;
    int m_iPictureWidth = 0, m_iPictureHeight = 0;
    std::string m_strError;
};

bool CViewRun::Run()
{
    if (!m_aReader.Open(m_aArgs.strInput)) return mFail(m_aReader.GetError());
    if (!mChooseSlices() || !mChooseContrast()) return false;
    m_avfSlices.assign(m_viSlices.size(),
                       std::vector<float>(std::size_t(m_iWidth) * std::size_t(m_iHeight)));
    if (!(m_aArgs.strAxis == "z" ? mReadAlongZ() : mReadAcross()) || !mDraw()) return false;
    mSummarise();
    return true;
}

bool CViewRun::mChooseSlices()
{
    const MrcHeader& rHeader = m_aReader.GetHeader();
    const char cAxis = m_aArgs.strAxis.front();
    m_iExtent = cAxis == 'x' ? rHeader.iX : cAxis == 'y' ? rHeader.iY : rHeader.iZ;
    m_iWidth = cAxis == 'x' ? rHeader.iZ : rHeader.iX;
    m_iHeight = cAxis == 'y' ? rHeader.iZ : rHeader.iY;
    m_viSlices = {m_iExtent / 2};
    std::string strError;
    if (!m_aArgs.strSlices.empty() && !ParseViews(m_aArgs.strSlices, m_viSlices, strError))
        return mFail("--slices: " + strError);
    if (m_viSlices.back() >= m_iExtent)
        return mFail(Format("--slices: slice %d, but there are %d along %s", m_viSlices.back() + 1,
                            m_iExtent, m_aArgs.strAxis.c_str()));
    if (m_viSlices.size() > g_tMostSlices)
        return mFail(Format("--slices: %zu slices, at most %zu fit into a picture",
                            m_viSlices.size(), g_tMostSlices));
    if (std::max(m_iWidth, m_iHeight) <= 32767) return true;
    return mFail(Format("a slice of %d x %d is too large for a picture", m_iWidth, m_iHeight));
}

bool CViewRun::mChooseContrast()
{
    std::string strError;
    if (!ParseNumbers(m_aArgs.strContrast, 2, m_vdPercents, strError))
        return mFail("--contrast: " + strError);
    if (m_vdPercents[0] >= 0 && m_vdPercents[0] < m_vdPercents[1] && m_vdPercents[1] <= 100)
        return true;
    return mFail("--contrast: expected two percentiles, the lower one first, found \"" +
                 m_aArgs.strContrast + "\"");
}

bool CViewRun::mReadAlongZ()
{
    for (std::size_t i = 0; i < m_viSlices.size(); ++i)
        if (!m_aReader.ReadSection(m_viSlices[i], m_avfSlices[i]))
            return mFail(m_aReader.GetError());
    return true;
}

/// Slices along X or Y take a column or a row of every section.
bool CViewRun::mReadAcross()
{
    const MrcHeader& rHeader = m_aReader.GetHeader();
    const auto tX = static_cast<std::size_t>(rHeader.iX);
    const auto tZ = static_cast<std::size_t>(rHeader.iZ);
    const bool bAlongX = m_aArgs.strAxis == "x";
    std::vector<float> vfSection(rHeader.GetSectionPixels());
    CProgressBar aBar(m_aReport, "reading", rHeader.iZ, 4 * vfSection.size());
    for (std::size_t z = 0; z < tZ; ++z)
    {
        if (CInterrupt::IsSet()) return mFail("interrupted");
        if (!m_aReader.ReadSection(static_cast<int>(z), vfSection))
            return mFail(m_aReader.GetError());
        for (std::size_t i = 0; i < m_viSlices.size(); ++i)
        {
            const auto tAt = static_cast<std::size_t>(m_viSlices[i]);
            std::vector<float>& rSlice = m_avfSlices[i];
            if (bAlongX)
                for (std::size_t y = 0; y < std::size_t(rHeader.iY); ++y)
                    rSlice[y * tZ + z] = vfSection[y * tX + tAt];
            else
                std::copy_n(vfSection.begin() + static_cast<std::ptrdiff_t>(tAt * tX), tX,
                            rSlice.begin() + static_cast<std::ptrdiff_t>(z * tX));
        }
        aBar.Step(static_cast<int>(z) + 1);
    }
    return true;
}

/// The slices in rows, read like a page, as many in a row as make the picture about square.
bool CViewRun::mDraw()
{
    const auto iCount = static_cast<int>(m_viSlices.size());
    const double dAspect = double(m_iHeight) / m_iWidth;
    const int iColumns =
        std::clamp(static_cast<int>(std::lround(std::sqrt(iCount * dAspect))), 1, iCount);
    const int iRows = (iCount + iColumns - 1) / iColumns;
    const auto CellWidth = [&](double dScale)
    { return std::max(g_iLeastWide, ScaledExtent(m_iWidth, dScale)) + g_iGap; };

    double dScale = double(m_aArgs.iWidth - g_iGap - iColumns * g_iGap) / iColumns / m_iWidth;
    dScale = std::min(dScale, double(g_iMostHigh / iRows - g_iTitleHeight - g_iGap) / m_iHeight);
    if (dScale >= 1) dScale = std::min(std::floor(dScale), 4.0);  // whole factors stay sharp
    if (dScale <= 0)
        return mFail(
            Format("%d slices do not fit into a picture of %d pixels", iCount, m_aArgs.iWidth));
    const int iCellHeight = g_iTitleHeight + ScaledExtent(m_iHeight, dScale) + g_iGap;
    m_iPictureWidth = g_iGap + iColumns * CellWidth(dScale);
    m_iPictureHeight = g_iGap + iRows * iCellHeight;

    std::vector<GreyImage> aImages;
    for (const std::vector<float>& rSlice : m_avfSlices)
        aImages.push_back({m_iWidth, m_iHeight, rSlice});
    m_aGrey = GreyScale::Find(aImages, m_vdPercents[0], m_vdPercents[1]);
    const CPicture aPicture(m_iPictureWidth, m_iPictureHeight);
    for (int i = 0; i < iCount; ++i)
        DrawGreyImage(
            aPicture, aImages[std::size_t(i)], m_aGrey, g_iGap + i % iColumns * CellWidth(dScale),
            g_iGap + g_iTitleHeight + i / iColumns * iCellHeight, dScale,
            Format("%s %d/%d", m_aArgs.strAxis.c_str(), m_viSlices[std::size_t(i)] + 1, m_iExtent));
    return aPicture.Write(m_aArgs.strOutput, m_strError);
}

void CViewRun::mSummarise() const
{
    if (m_aReport.IsJson())
    {
        std::vector<int> viSlices = m_viSlices;
        for (int& rSlice : viSlices) ++rSlice;
        const nlohmann::ordered_json aJson = {
            {"command", "view"},
            {"picture",
             {{"file", m_aArgs.strOutput}, {"size", {m_iPictureWidth, m_iPictureHeight}}}},
            {"axis", m_aArgs.strAxis},
            {"slices", viSlices},
            {"black", m_aGrey.fBlack},
            {"white", m_aGrey.fWhite}};
        std::puts(aJson.dump(2).c_str());
    }
    m_aReport.PrintLine(Format("%s: %zu slice%s along %s, %d x %d pixels, black %.5g, white %.5g",
                               m_aArgs.strOutput.c_str(), m_viSlices.size(),
                               m_viSlices.size() == 1 ? "" : "s", m_aArgs.strAxis.c_str(),
                               m_iPictureWidth, m_iPictureHeight, double(m_aGrey.fBlack),
                               double(m_aGrey.fWhite)));
}

}  // namespace

bool RunView(const ViewArgs& rArgs, std::string& rError)
{
    CViewRun aRun(rArgs);
    if (aRun.Run()) return true;
    rError = aRun.GetError();
    return false;
}

}  // namespace talven
