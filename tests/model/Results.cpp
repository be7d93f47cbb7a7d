#include <algorithm>
#include <cmath>

#include "tests/model/Session.h"

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
    if (!mSend(rRequest) || !mSettle()) return false;
    if (m_aReply.Field(5) != 0) return true;
    return mFetch(bReproject) && mCheckJob(aBefore, bReproject);
}

/// What a job has made, which the model takes over; what it must not touch is compared.
bool CSession::mFetch(bool bReproject)
{
    Model& m = m_rModel;
    Images& rImages = bReproject ? m.aStack : m.aVolume;
    for (std::uint32_t n = 0; n < std::uint32_t(rImages.iN); ++n)
    {
        const bool bNew = !bReproject || std::ranges::count(m.vuiList, n) != 0;
        const std::span<float> fTarget = bNew ? rImages.Nth(int(n)) : std::span<float>();
        if (!mSend({bReproject ? Msg::eProjGet : Msg::eVolGet, {n}}, fTarget)) return false;
    }
    if (bReproject || m.eMethod == EMethod::eBackProj) return mSettle();
    m.vvfStat.assign(m.uiIterations, std::vector<float>(2 * m.vuiList.size()));
    for (std::uint32_t i = 0; i < m.uiIterations; ++i)
        if (!mSend({Msg::eReconStatGet, {i}}, m.vvfStat[i])) return false;
    return mSettle();
}

bool CSession::mCheckJob(const Model& rBefore, bool bReproject)
{
    if (rBefore.FindObstacle(bReproject, true) != 0) return true;
    const TestJob aJob = rBefore.MakeJob(bReproject);
    const TestData aExpected = RunOracle(aJob, rBefore.MakeData());
    TestData aGot = m_rModel.MakeData();
    const bool bIterates = !bReproject && aJob.eMethod != EMethod::eBackProj;
    for (std::size_t i = 0; bIterates && i < m_rModel.vvfStat.size(); ++i)
        aGot.vdRfactor.insert(aGot.vdRfactor.end(), m_rModel.vvfStat[i].begin(),
                              m_rModel.vvfStat[i].end());
    // The rounding of one pass of float sums, and what iterations make of it.
    const double dTolerance = !bIterates ? 2e-5 : aJob.eMethod == EMethod::eSart ? 2e-4 : 5e-4;
    const double dError = JobError(aGot, aExpected);
    ++m_rCounts.lResults;
    if (dError <= dTolerance) return true;
    if (!bIterates || !std::isfinite(dError)) return mWrong("error " + std::to_string(dError));
    // Iterations divide by ray sums, and what is left of them may be rounding alone: where rays
    // hardly touch anything, or all is explained, a few jobs of very many are anybody's guess.
    ++m_rCounts.lBeyond;
    return true;
}

bool CSession::mAlign(const Request& rRequest)
{
    const bool bCompare = rRequest.uiType >= Msg::eCompare;
    Model& m = m_rModel;
    const std::uint32_t n = rRequest.Field(5);
    const Images aBefore = m.aStack;
    if (!mSend(rRequest) || !mSettle()) return false;
    const Packet aReply = m_aReply;
    if (aReply.Field(5) != 0) return true;
    if (!bCompare && (!mSend({Msg::eProjGet, {n}}, m.aStack.Nth(int(n))) || !mSettle()))
        return false;
    return mCheckAlign(rRequest, aBefore, aReply);
}

/// Floats that differ by the rounding of positions and of sums.
bool CSession::mCheckAlign(const Request& rRequest, const Images& rBefore, const Packet& rReply)
{
    const int n = int(rRequest.Field(5));
    const OracleAlign aAlign = *ReadAlign(rRequest);
    if (!m_rModel.IsPlain(aAlign) || !ArePlain(rBefore.Nth(n), 1e6f, true)) return true;
    ++m_rCounts.lResults;
    bool bAgrees = true;
    const auto Check = [&](double dGot, double dExpected, double dSize)
    { bAgrees = bAgrees && std::fabs(dGot - dExpected) <= 5e-5 * dSize; };
    const Values vdExpected =
        TransformImage(aAlign, m_rModel.aMeasured, int(rRequest.Field(4)), rBefore.iX, rBefore.iY);
    const AlignSums aSums = SumImages(rBefore.Nth(n), vdExpected);
    if (rRequest.uiType < Msg::eCompare)
        for (std::size_t k = 0; k < vdExpected.size(); ++k)
        {
            const bool bMissing = std::isnan(vdExpected[k]);
            Check(m_rModel.aStack.Nth(n)[k], bMissing ? -1e30 : vdExpected[k], bMissing ? 1e30 : 1);
        }
    else
        for (std::size_t k = 0; k < aSums.ad.size(); ++k)
        {
            // A difference is as exact as what it is made of.
            const double dSize = k == 7 ? aSums.adSize[5] + aSums.adSize[6] : aSums.adSize[k];
            if (dSize < 1e37)  // else missing pixels of the stack squared
                Check(std::bit_cast<float>(rReply.auiFields[7 + k]), aSums.ad[k], dSize + 1e-6);
        }
    return bAgrees || mWrong("not what the formula gives");
}
