#include "Transform.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "Interrupt.h"
#include "Lists.h"
#include "talven/MrcReader.h"
#include "talven/MrcWriter.h"

namespace talven
{
namespace
{

/// One run of the command. The sections go through the server one at a time, so that it needs the
/// memory of one.
class CTransformRun
{
public:
    explicit CTransformRun(const TransformArgs& rArgs) : m_aArgs(rArgs), m_aReport(rArgs.aReport) {}
    bool Run();
    const std::string& GetError() const { return m_strError; }

private:
    bool mOpenFiles();
    bool mChooseSize();
    bool mTransformAll();
    bool mReadMeasured(int iSection, std::span<float> fPixels);
    bool mTakeAligned(std::span<const float> fPixels);
    void mSummarise() const;
    bool mFail(const std::string& strError)
    {
        m_strError = strError;
        return false;
    }
    bool mServer(bool bDone) { return bDone || mFail(m_aLink.Explain()); }

    const TransformArgs& m_aArgs;
    CReport m_aReport;
    CMrcReader m_aMeasured;
    CMrcWriter m_aOutput;
    CAlignment m_aAlignment;
    CServerLink m_aLink;
    int m_iX = 0, m_iY = 0;  // of the output
    std::uint64_t m_ulMissing = 0;
    CStopwatch m_aTotal;
    std::string m_strError;
};

bool CTransformRun::Run()
{
    if (!mOpenFiles()) return false;
    if (!m_aLink.Connect(m_aArgs.aServer, m_aReport))
        return mFail(CInterrupt::IsSet() ? "interrupted" : m_aLink.GetError());
    if (!mTransformAll()) return false;
    m_aLink.Close();
    if (!m_aOutput.Finish()) return mFail(m_aOutput.GetError());
    mSummarise();
    return true;
}

bool CTransformRun::mOpenFiles()
{
    if (!m_aMeasured.Open(m_aArgs.strMeasured)) return mFail(m_aMeasured.GetError());
    const MrcHeader& rHeader = m_aMeasured.GetHeader();
    if (!mChooseSize() || !m_aAlignment.Make(m_aArgs.aAlignment, rHeader, m_iX, m_iY, m_strError) ||
        !CheckJobSize({rHeader.iX, rHeader.iY, 1, 1, 1}, m_aArgs.aServer, m_strError) ||
        !CheckJobSize({m_iX, m_iY, 1, 1, 1}, m_aArgs.aServer, m_strError))
        return false;
    if (!m_aOutput.Create(
            m_aArgs.strOutput, m_iX, m_iY, rHeader.iZ, rHeader.dPixel, false,
            m_aArgs.aAlignment.bLog ? "Talven: aligned, logarithm" : "Talven: aligned"))
        return mFail(m_aOutput.GetError());
    m_aReport.PrintLine(Format("%s: %d sections of %d x %d -> %d x %d", m_aArgs.strMeasured.c_str(),
                               rHeader.iZ, rHeader.iX, rHeader.iY, m_iX, m_iY));
    return true;
}

bool CTransformRun::mChooseSize()
{
    constexpr std::uint32_t uiMost = 1u << 24;  // as in the files that we read
    m_iX = m_aMeasured.GetHeader().iX;
    m_iY = m_aMeasured.GetHeader().iY;
    if (m_aArgs.strSize.empty()) return true;
    std::vector<std::uint32_t> vuiSize;
    std::string strError;
    if (!ParseSizes(m_aArgs.strSize, vuiSize, strError)) return mFail("--size: " + strError);
    if (vuiSize.size() != 2 || std::max(vuiSize[0], vuiSize[1]) > uiMost)
        return mFail("--size: expected X,Y, found \"" + m_aArgs.strSize + "\"");
    m_iX = static_cast<int>(vuiSize[0]);
    m_iY = static_cast<int>(vuiSize[1]);
    return true;
}

bool CTransformRun::mTransformAll()
{
    CSession& rSession = m_aLink.GetSession();
    const MrcHeader& rHeader = m_aMeasured.GetHeader();
    if (!mServer(rSession.SetStackSize(m_iX, m_iY, std::vector<float>{0}) &&
                 rSession.SetMeasuredSize(rHeader.iX, rHeader.iY, 1)))
        return false;
    std::vector<float> vfMeasured(rHeader.GetSectionPixels());
    const std::size_t tPixels = std::size_t(m_iX) * std::size_t(m_iY);
    CProgressBar aBar(m_aReport, "transform", rHeader.iZ, 4 * (vfMeasured.size() + tPixels));
    bool bTaken = true;
    const auto TakeAligned = [&](int, std::span<const float> fPixels)
    { return bTaken = mTakeAligned(fPixels); };
    for (int i = 0; i < rHeader.iZ; ++i)
    {
        if (CInterrupt::IsSet()) return mFail("interrupted");
        if (!mReadMeasured(i, vfMeasured)) return false;
        if (!rSession.SetMeasured(0, vfMeasured) ||
            !rSession.Transform(0, 0, m_aAlignment.GetMap(i), m_aAlignment.GetScale()) ||
            !rSession.GetProjections(1, tPixels, TakeAligned))
            return bTaken ? mServer(false) : false;
        aBar.Step(i + 1);
    }
    return true;
}

bool CTransformRun::mReadMeasured(int iSection, std::span<float> fPixels)
{
    if (!m_aMeasured.ReadSection(iSection, fPixels)) return mFail(m_aMeasured.GetError());
    if (!m_aAlignment.GetScale().bLog && m_aAlignment.GetScale().fGain > 0) return true;
    if (std::none_of(fPixels.begin(), fPixels.end(), IsMissing)) return true;
    return mFail(
        Format("%s: section %d has missing pixels, which stay missing only with a linear "
               "scale and a --gain above 0",
               m_aArgs.strMeasured.c_str(), iSection + 1));
}

bool CTransformRun::mTakeAligned(std::span<const float> fPixels)
{
    m_ulMissing +=
        static_cast<std::uint64_t>(std::count_if(fPixels.begin(), fPixels.end(), IsMissing));
    return m_aOutput.WriteSection(fPixels) || mFail(m_aOutput.GetError());
}

void CTransformRun::mSummarise() const
{
    const MrcHeader& rHeader = m_aOutput.GetHeader();
    if (m_aReport.IsJson())
    {
        const nlohmann::ordered_json aJson = {{"command", "transform"},
                                              {"stack",
                                               {{"file", m_aArgs.strOutput},
                                                {"size", {m_iX, m_iY, rHeader.iZ}},
                                                {"min", rHeader.fMin},
                                                {"max", rHeader.fMax},
                                                {"mean", rHeader.fMean},
                                                {"rms", rHeader.fRms}}},
                                              {"missing_pixels", m_ulMissing},
                                              {"seconds", {{"total", m_aTotal.GetSeconds()}}}};
        std::puts(aJson.dump(2).c_str());
    }
    const double dPixels = double(rHeader.GetSectionPixels()) * rHeader.iZ;
    m_aReport.PrintLine(Format("%s: %.2f %% of the pixels missing, %s", m_aArgs.strOutput.c_str(),
                               100 * double(m_ulMissing) / dPixels,
                               FormatSeconds(m_aTotal.GetSeconds()).c_str()));
}

}  // namespace

bool RunTransform(const TransformArgs& rArgs, std::string& rError)
{
    CTransformRun aRun(rArgs);
    if (aRun.Run()) return true;
    rError = aRun.GetError();
    return false;
}

}  // namespace talven
