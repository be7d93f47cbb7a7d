#include "Compare.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "Interrupt.h"
#include "ShiftSearch.h"
#include "talven/AtomicFile.h"
#include "talven/MrcReader.h"

namespace talven
{
namespace
{

/// How one section agrees.
struct SectionResult
{
    ShiftMatch aMatch;
    Affine aMatrix;  // as the user counts pixels, with the shift
    double dOffset;  // taken off both images before they were summed
};

/// Mean of the pixels that are not missing; 0 for none.
double CalcMean(std::span<const float> fPixels)
{
    double dSum = 0;
    double dCount = 0;
    for (const float fPixel : fPixels)
        if (!IsMissing(fPixel))
        {
            dSum += fPixel;
            ++dCount;
        }
    return dCount > 0 ? dSum / dCount : 0;
}

/// The scale whose results are smaller by dOffset, which becomes 0 where there is none.
///
/// The server sums in single precision: images less their mean lose far fewer digits.
IntensityScale TakeOff(IntensityScale aScale, double& rOffset)
{
    constexpr double dMost = std::numeric_limits<float>::max();
    if (aScale.bLog)
    {
        const double dBeam = aScale.fBeam * std::exp(-rOffset / aScale.fFactor);
        if (!(dBeam > 1e-30 && dBeam < 1e30))
        {
            rOffset = 0;
            return aScale;
        }
        aScale.fBeam = static_cast<float>(dBeam);
    }
    else
        aScale.fOffset = static_cast<float>(std::clamp(aScale.fOffset - rOffset, -dMost, dMost));
    aScale.fMost = static_cast<float>(std::clamp(aScale.fMost - rOffset, -dMost, dMost));
    return aScale;
}

/// One run of the command. The sections are compared one at a time, so that the server needs the
/// memory of one.
class CCompareRun
{
public:
    explicit CCompareRun(const CompareArgs& rArgs) : m_aArgs(rArgs), m_aReport(rArgs.aReport) {}
    bool Run();
    const std::string& GetError() const { return m_strError; }

private:
    bool mOpenFiles();
    bool mCompareAll();
    bool mCompareSection(int iSection);
    bool mUpload(int iSection, double& rOffset, IntensityScale& rScale);
    bool mFindShift(int iSection, const IntensityScale& rScale, ShiftMatch& rMatch);
    void mPrintSection(int iSection) const;
    void mSummarise() const;
    nlohmann::ordered_json mMakeJson() const;
    bool mFail(const std::string& strError)
    {
        m_strError = strError;
        return false;
    }
    bool mServer(bool bDone) { return bDone || mFail(m_aLink.Explain()); }

    const CompareArgs& m_aArgs;
    CReport m_aReport;
    CMrcReader m_aMeasured, m_aAligned;
    CAlignment m_aAlignment;
    CServerLink m_aLink;
    std::vector<float> m_vfMeasured, m_vfAligned;  // the section at hand
    std::vector<SectionResult> m_aResults;
    CStopwatch m_aTotal;
    std::string m_strError;
};

bool CCompareRun::Run()
{
    if (!mOpenFiles()) return false;
    if (!m_aLink.Connect(m_aArgs.aServer, m_aReport))
        return mFail(CInterrupt::IsSet() ? "interrupted" : m_aLink.GetError());
    if (!mCompareAll()) return false;
    m_aLink.Close();
    if (!m_aArgs.strWriteMatrices.empty())
    {
        std::vector<Affine> aMatrices;
        for (const SectionResult& rResult : m_aResults) aMatrices.push_back(rResult.aMatrix);
        if (!WriteMatrices(m_aArgs.strWriteMatrices, aMatrices, m_strError)) return false;
    }
    mSummarise();
    return true;
}

bool CCompareRun::mOpenFiles()
{
    if (!m_aMeasured.Open(m_aArgs.strMeasured)) return mFail(m_aMeasured.GetError());
    if (!m_aAligned.Open(m_aArgs.strAligned)) return mFail(m_aAligned.GetError());
    const MrcHeader& rMeasured = m_aMeasured.GetHeader();
    const MrcHeader& rAligned = m_aAligned.GetHeader();
    if (rMeasured.iZ != rAligned.iZ)
        return mFail(Format("%s has %d section%s, but %s has %d", m_aArgs.strMeasured.c_str(),
                            rMeasured.iZ, rMeasured.iZ == 1 ? "" : "s", m_aArgs.strAligned.c_str(),
                            rAligned.iZ));
    CAtomicFile aProbe;
    if (!m_aArgs.strWriteMatrices.empty() && !aProbe.Create(m_aArgs.strWriteMatrices))
        return mFail(aProbe.GetError());
    return m_aAlignment.Make(m_aArgs.aAlignment, rMeasured, rAligned.iX, rAligned.iY, m_strError) &&
           CheckJobSize({rMeasured.iX, rMeasured.iY, 1, 1, 1}, m_aArgs.aServer, m_strError) &&
           CheckJobSize({rAligned.iX, rAligned.iY, 1, 1, 1}, m_aArgs.aServer, m_strError);
}

bool CCompareRun::mCompareAll()
{
    CSession& rSession = m_aLink.GetSession();
    const MrcHeader& rMeasured = m_aMeasured.GetHeader();
    const MrcHeader& rAligned = m_aAligned.GetHeader();
    if (!mServer(rSession.SetStackSize(rAligned.iX, rAligned.iY, std::vector<float>{0}) &&
                 rSession.SetMeasuredSize(rMeasured.iX, rMeasured.iY, 1)))
        return false;
    m_vfMeasured.resize(rMeasured.GetSectionPixels());
    m_vfAligned.resize(rAligned.GetSectionPixels());
    for (int i = 0; i < rMeasured.iZ; ++i)
    {
        if (CInterrupt::IsSet()) return mFail("interrupted");
        if (!mCompareSection(i)) return false;
        mPrintSection(i);
    }
    return true;
}

bool CCompareRun::mCompareSection(int iSection)
{
    SectionResult aResult{};
    IntensityScale aScale = m_aAlignment.GetScale();
    if (!mUpload(iSection, aResult.dOffset, aScale)) return false;
    ShiftMatch& rMatch = aResult.aMatch;
    if (m_aArgs.iSearch > 0)
    {
        if (!mFindShift(iSection, aScale, rMatch)) return false;
    }
    else
    {
        if (!mServer(m_aLink.GetSession().Compare(0, 0, m_aAlignment.GetMap(iSection), aScale,
                                                  rMatch.aSums)))
            return false;
        rMatch.dCorrelation = CalcCorrelation(rMatch.aSums);
    }
    aResult.aMatrix = m_aAlignment.GetUserMatrix(iSection, rMatch.dX, rMatch.dY);
    m_aResults.push_back(aResult);
    return true;
}

/// Both images less the mean of the aligned one. Missing pixels become their image's mean: then
/// they neither help nor harm the correlation much.
bool CCompareRun::mUpload(int iSection, double& rOffset, IntensityScale& rScale)
{
    if (!m_aMeasured.ReadSection(iSection, m_vfMeasured)) return mFail(m_aMeasured.GetError());
    if (!m_aAligned.ReadSection(iSection, m_vfAligned)) return mFail(m_aAligned.GetError());
    const double dMean = CalcMean(m_vfAligned);
    rOffset = dMean;
    rScale = TakeOff(rScale, rOffset);
    for (float& rPixel : m_vfAligned)
        rPixel = static_cast<float>((IsMissing(rPixel) ? dMean : double(rPixel)) - rOffset);
    const auto fMeasuredMean = static_cast<float>(CalcMean(m_vfMeasured));
    std::replace_if(m_vfMeasured.begin(), m_vfMeasured.end(), IsMissing, fMeasuredMean);
    CSession& rSession = m_aLink.GetSession();
    return mServer(rSession.SetProjection(0, m_vfAligned) && rSession.SetMeasured(0, m_vfMeasured));
}

bool CCompareRun::mFindShift(int iSection, const IntensityScale& rScale, ShiftMatch& rMatch)
{
    const CElapsedTime aElapsed(m_aReport, Format("section %d", iSection + 1));
    const auto Probe = [&](double dX, double dY, CompareSums& rSums)
    {
        if (CInterrupt::IsSet()) return mFail("interrupted");
        return mServer(m_aLink.GetSession().Compare(0, 0, m_aAlignment.GetMap(iSection, dX, dY),
                                                    rScale, rSums));
    };
    CShiftSearch aSearch(m_aArgs.iSearch, 0.25 * double(m_vfAligned.size()), Probe);
    switch (aSearch.Run(rMatch))
    {
    case CShiftSearch::EResult::eFound:
        return true;
    case CShiftSearch::EResult::eNothing:
        return mFail(
            Format("section %d: no shift leaves a quarter of it to compare, or one of the "
                   "images is constant",
                   iSection + 1));
    case CShiftSearch::EResult::eEnded:
        break;  // the probe has said why
    }
    return false;
}

void CCompareRun::mPrintSection(int iSection) const
{
    const ShiftMatch& rMatch = m_aResults[std::size_t(iSection)].aMatch;
    std::string strLine = Format(
        "section %d: correlation %.4f, mean difference %.5g over %.0f "
        "pixels",
        iSection + 1, rMatch.dCorrelation, CalcMeanDifference(rMatch.aSums),
        double(rMatch.aSums.fCount));
    if (m_aArgs.iSearch > 0)
        strLine += Format(", shift %.2f %.2f%s", rMatch.dX, rMatch.dY,
                          rMatch.bAtEdge ? " (at the edge of the search)" : "");
    m_aReport.PrintLine(strLine);
}

void CCompareRun::mSummarise() const
{
    if (m_aReport.IsJson()) std::puts(mMakeJson().dump(2).c_str());
    double dSum = 0;
    std::size_t tWorst = 0;
    for (std::size_t i = 0; i < m_aResults.size(); ++i)
    {
        const double dThis = m_aResults[i].aMatch.dCorrelation;
        dSum += dThis;
        if (!(dThis >= m_aResults[tWorst].aMatch.dCorrelation)) tWorst = i;
    }
    m_aReport.PrintLine(Format("%s: mean correlation %.4f, lowest %.4f in section %zu, %s",
                               m_aArgs.strMeasured.c_str(), dSum / double(m_aResults.size()),
                               m_aResults[tWorst].aMatch.dCorrelation, tWorst + 1,
                               FormatSeconds(m_aTotal.GetSeconds()).c_str()));
}

nlohmann::ordered_json CCompareRun::mMakeJson() const
{
    nlohmann::ordered_json aSections = nlohmann::ordered_json::array();
    for (std::size_t i = 0; i < m_aResults.size(); ++i)
    {
        const SectionResult& rResult = m_aResults[i];
        const CompareSums& rSums = rResult.aMatch.aSums;
        nlohmann::ordered_json aSection = {
            {"section", i + 1},
            {"correlation", rResult.aMatch.dCorrelation},  // not a number: null
            {"mean_difference", CalcMeanDifference(rSums)},
            {"matrix", rResult.aMatrix}};
        if (m_aArgs.iSearch > 0)
        {
            aSection["shift"] = {rResult.aMatch.dX, rResult.aMatch.dY};
            aSection["at_edge"] = rResult.aMatch.bAtEdge;
        }
        aSection["offset"] = rResult.dOffset;
        aSection["sums"] = {{"count", rSums.fCount},
                            {"difference", rSums.fDiff},
                            {"cross", rSums.fCross},
                            {"aligned", rSums.fAligned},
                            {"aligned_abs", rSums.fAlignedAbs},
                            {"aligned_square", rSums.fAlignedSqr},
                            {"transformed", rSums.fTransed},
                            {"transformed_abs", rSums.fTransedAbs},
                            {"transformed_square", rSums.fTransedSqr}};
        aSections.push_back(std::move(aSection));
    }
    return {{"command", "compare"},
            {"measured", m_aArgs.strMeasured},
            {"aligned", m_aArgs.strAligned},
            {"sections", std::move(aSections)},
            {"seconds", {{"total", m_aTotal.GetSeconds()}}}};
}

}  // namespace

bool RunCompare(const CompareArgs& rArgs, std::string& rError)
{
    CCompareRun aRun(rArgs);
    if (aRun.Run()) return true;
    rError = aRun.GetError();
    return false;
}

}  // namespace talven
