#include <algorithm>
#include <cmath>

#include "tests/model/Session.h"

namespace
{
constexpr double g_dPixel = 5e-5;  // positions are floats: their error times the steepest slope
constexpr double g_dSum = 5e-5;    // float sums, relative to the sum of absolute values
constexpr float g_fMissing = -1e29f;

ECheck KindOf(const TestJob& rJob)
{
    if (rJob.bReproject) return eReprojected;
    if (rJob.eMethod == EMethod::eBackProj) return eBackProjected;
    return rJob.eMethod == EMethod::eSart ? eSartRun : eEmRun;
}

/// The rounding of one pass of float sums, and what iterations make of it.
double GetTolerance(ECheck eCheck)
{
    return eCheck == eSartRun ? 2e-4 : eCheck == eEmRun ? 5e-4 : 2e-5;
}

/// Whether the tolerances above hold: no steep slopes.
bool IsPlain(const OracleAlign& rAlign, const Images& rMeasured)
{
    const auto& s = rAlign.afScale;
    const float fLeast = std::ranges::min(rMeasured.vf);
    const bool bFloor = s[3] >= 0.4f || (s[0] >= 0.4f && s[1] >= 0 && fLeast >= 0.09f);
    const bool bLimit = s[2] > 1e-6f, bLog = bFloor && s[3] <= 10 && s[5] >= 0.1f && s[5] <= 10;
    return ArePlain(rAlign.afMatrix, 10) && ArePlain(rMeasured.vf, 10) && bLimit &&
           ArePlain({&s[0], 2}, 10) && ArePlain({&s[4], 1}, 10) && (bLog || !rAlign.bLog);
}
}  // namespace

bool CSession::mServeJob(const Request& rRequest)
{
    if (!mSettle()) return false;
    if (m_bCutInJob) m_rClient.CutAfter(std::size_t(m_r.Int(64, 150)), m_bCutResets);
    const bool bAlign = rRequest.uiType >= Msg::eTransform;
    const bool bGoesOn = bAlign ? mAlign(rRequest) : mRun(rRequest);
    if (bGoesOn) m_aGenerator.Ask();
    if (!m_strError.empty()) m_strError = ::ToText(rRequest) + ": " + m_strError;
    return bGoesOn;
}

bool CSession::mRun(const Request& rRequest)
{
    const bool bReproject = rRequest.uiType == Msg::eReproject;
    const Model aBefore = m_rModel;
    if (!mSend(rRequest)) return false;
    if (!mSettle()) return false;
    if (m_aReply.Field(5) != 0) return true;
    return mFetch(bReproject) && mCheckJob(aBefore, bReproject);
}

/// What a job has made, which the model takes over; what it must not touch is compared.
bool CSession::mFetch(bool bReproject)
{
    Model& m = m_rModel;
    const bool bStat = !bReproject && m.eMethod != EMethod::eBackProj;
    const int iImages = bReproject ? m.aStack.iN : m.aVolume.iN;
    for (int n = 0; n < iImages; ++n)
    {
        const bool bNew = !bReproject || std::ranges::count(m.vuiList, std::uint32_t(n)) != 0;
        std::span<float> fTarget;
        if (bNew) fTarget = (bReproject ? m.aStack : m.aVolume).Nth(n);
        if (!mSend({bReproject ? Msg::eProjGet : Msg::eVolGet, {std::uint32_t(n)}}, fTarget))
            return false;
        if (m_vPending.size() > 60 && !mSettle()) return false;
    }
    std::vector<std::vector<float>> vvfStat(bStat ? m.uiIterations : 0);
    if (bStat) m.vvuiStat.assign(m.uiIterations, Words(2 * m.vuiList.size()));
    for (std::size_t i = 0; i < vvfStat.size(); ++i)
    {
        vvfStat[i].resize(2 * m.vuiList.size());
        if (!mSend({Msg::eReconStatGet, {std::uint32_t(i)}}, vvfStat[i])) return false;
    }
    if (!mSettle()) return false;
    for (std::size_t i = 0; i < vvfStat.size(); ++i) m.vvuiStat[i] = ToWords(vvfStat[i]);
    return true;
}

bool CSession::mCheckJob(const Model& rBefore, bool bReproject)
{
    if (rBefore.FindDoubt(bReproject) != 0)
    {
        m_rTally.Note(eUnfollowed);
        return true;
    }
    const TestJob aJob = rBefore.MakeJob(bReproject);
    const TestData aStart = rBefore.MakeData(), aExpected = RunOracle(aJob, aStart);
    TestData aGot;
    aGot.vfVolume = m_rModel.aVolume.vf;
    aGot.vfProjs = m_rModel.aStack.vf;
    const ECheck eCheck = KindOf(aJob);
    if (eCheck == eSartRun || eCheck == eEmRun)
        for (const Words& rIteration : m_rModel.vvuiStat)
            for (const std::uint32_t uiSum : rIteration)
                aGot.vdRfactor.push_back(std::bit_cast<float>(uiSum));
    if (aJob.uiInterval > 0 && !aJob.vfKernel.empty()) m_rTally.Note(eSmoothed);

    const double dError = JobError(aJob, aGot, aExpected), dTolerance = GetTolerance(eCheck);
    if (dError <= dTolerance) return mAgrees(eCheck, dError, dTolerance);
    m_rTally.Note(eDoubted);
    const double dDoubt = 4 * JobDoubt(aJob, aStart, aExpected);
    // EM divides by ray sums, by 1 where one is 0. A sum of zeros and one of roundings are worlds
    // apart, and no small change of the inputs leads from one to the other. They are counted.
    if (eCheck == eEmRun && !(dError <= dDoubt) && std::isfinite(dError))
    {
        m_rTally.Note(eUnjudged);
        return true;
    }
    return mAgrees(eCheck, dError, dDoubt);
}

bool CSession::mAlign(const Request& rRequest)
{
    const bool bCompare = rRequest.uiType >= Msg::eCompare;
    Model& m = m_rModel;
    const int n = int(rRequest.Field(5));
    const Images aBefore = m.aStack;
    if (!mSend(rRequest) || !mSettle()) return false;
    if (bCompare) std::copy_n(&m_aReply.auiFields[7], 8, m.auiSums.emplace().begin());
    if (m_aReply.Field(5) != 0) return true;
    const Packet aReply = m_aReply;
    if (!bCompare && (!mSend({Msg::eProjGet, {std::uint32_t(n)}}, m.aStack.Nth(n)) || !mSettle()))
        return false;
    const OracleAlign aAlign = *ReadAlign(rRequest);
    if (!IsPlain(aAlign, m.aMeasured) || !ArePixelsPlain(aBefore.Nth(n)))
    {
        m_rTally.Note(eUnfollowed);
        return true;
    }
    const Values vdExpected =
        TransformImage(aAlign, m.aMeasured, int(rRequest.Field(4)), aBefore.iX, aBefore.iY);
    m_aReply = aReply;
    return bCompare ? mCheckSums(SumImages(aBefore.Nth(n), vdExpected))
                    : mCheckImage(vdExpected, m.aStack, n);
}

bool CSession::mCheckImage(const Values& rExpected, const Images& rGot, int n)
{
    double dWorst = 0;
    for (std::size_t k = 0; k < rExpected.size(); ++k)
    {
        const float fGot = rGot.Nth(n)[k];
        const bool bMissing = std::isnan(rExpected[k]), bAgrees = bMissing == (fGot < g_fMissing);
        dWorst = Larger(dWorst, !bAgrees   ? HUGE_VAL
                                : bMissing ? 0
                                           : std::fabs(fGot - rExpected[k]));
    }
    return mAgrees(eTransformed, dWorst, g_dPixel);
}

bool CSession::mCheckSums(const AlignSums& rExpected)
{
    double dWorst = 0;
    for (std::size_t k = 0; k < rExpected.ad.size(); ++k)
    {
        // A difference is as exact as what it is made of.
        const double dSize =
            k == 7 ? rExpected.adSize[5] + rExpected.adSize[6] : rExpected.adSize[k];
        if (!(dSize < 1e37)) continue;  // missing pixels of the stack squared
        const double dGot = std::bit_cast<float>(m_aReply.Field(int(7 + k)));
        dWorst = Larger(dWorst, std::fabs(dGot - rExpected.ad[k]) / (dSize + 1e-6));
    }
    return mAgrees(eCompared, dWorst, g_dSum);
}

bool CSession::mAgrees(ECheck eCheck, double dError, double dTolerance)
{
    if (!(dError <= dTolerance))
        return mWrong(std::string(g_apcChecks[eCheck]) + ": error " + std::to_string(dError) +
                      ", tolerance " + std::to_string(dTolerance));
    m_rTally.Note(eCheck, dError / dTolerance);
    return true;
}
