#include <algorithm>
#include <cmath>

#include "tests/model/Session.h"

bool CSession::mServeJob(const Request& rRequest)
{
    if (!mSettle()) return false;
    if (m_bCutInJob) m_rClient.CutAfter(std::size_t(m_r.Int(64, 150)), m_bCutResets);
    const Model aBefore = m_rModel;
    if (!mSend(rRequest) || !mSettle()) return false;
    m_aGenerator.Ask();
    const Packet aReply = m_aReply;
    if (aReply.Field(5) != 0) return true;
    if (!mFetch(rRequest)) return false;
    const bool bRight = rRequest.uiType >= Msg::eTransform
                            ? mCheckAlign(rRequest, aBefore.aStack, aReply)
                            : mCheckJob(rRequest, aBefore);
    return bRight || mWrong(::ToText(rRequest) + ": not what the formulas give");
}

/// What a job has made, which the model takes over; what it must not touch is compared.
bool CSession::mFetch(const Request& rRequest)
{
    Model& m = m_rModel;
    if (rRequest.uiType >= Msg::eCompare) return true;
    const bool bVolume = rRequest.uiType == Msg::eReconstruct;
    Images& rImages = bVolume ? m.aVolume : m.aStack;
    for (std::uint32_t n = 0; n < std::uint32_t(rImages.iN); ++n)
    {
        const bool bListed = std::ranges::count(m.vuiList, n) != 0;
        const bool bProjected =
            rRequest.uiType == Msg::eReproject ? bListed : n == rRequest.Field(5);
        std::span<float> fTarget;
        if (bVolume || bProjected) fTarget = rImages.Nth(int(n));
        if (!mSend({bVolume ? Msg::eVolGet : Msg::eProjGet, {n}}, fTarget)) return false;
    }
    if (!bVolume || m.eMethod == EMethod::eBackProj) return mSettle();
    m.vvfStat.assign(m.uiIterations, std::vector<float>(2 * m.vuiList.size()));
    for (std::uint32_t i = 0; i < m.uiIterations; ++i)
        if (!mSend({Msg::eReconStatGet, {i}}, m.vvfStat[i])) return false;
    return mSettle();
}

bool CSession::mCheckJob(const Request& rRequest, const Model& rBefore)
{
    if (rBefore.FindObstacle(rRequest.uiType, true) != 0) return true;
    const bool bReproject = rRequest.uiType == Msg::eReproject;
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
    if (!bIterates || !std::isfinite(dError)) return false;
    // Iterations divide by ray sums, and what is left of them may be rounding alone: where rays
    // hardly touch anything, or all is explained, a few jobs of very many are anybody's guess.
    ++m_rCounts.lBeyond;
    return true;
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
    return bAgrees;
}
