#include <algorithm>
#include <bit>
#include <cmath>

#include "tests/oracle/JobOracle.h"
#include "tests/soak/Session.h"
#include "tests/wire/Messages.h"

namespace
{
constexpr double g_dPixel = 5e-5;  // positions are floats: their error times the steepest slope
constexpr double g_dSum = 5e-5;    // float sums, relative to the sum of absolute values
constexpr float g_fMissing = -1e29f;
}  // namespace

OracleAlign CSession::mMakeAlignJob()
{
    CRandom& r = m_aRandom;
    OracleAlign aJob;
    const float fU = r.Real(-4, 4), fV = r.Real(-4, 4);
    if (r.Chance(0.3f))  // exact positions
        aJob.afMatrix = {1, 0, 0, 1, 0.5f * float(r.Int(-6, 6)), 0.5f * float(r.Int(-6, 6))};
    else
        aJob.afMatrix = {r.Real(0.5f, 1.5f),
                         r.Real(-0.3f, 0.3f),
                         r.Real(-0.3f, 0.3f),
                         r.Real(0.5f, 1.5f),
                         fU,
                         fV};
    aJob.afScale = {r.Real(0.5f, 2),    r.Real(0, 0.5f),    r.Real(1, 9),
                    r.Real(0.5f, 1.5f), r.Real(0.5f, 1.5f), r.Real(3, 9)};
    aJob.bLog = r.Chance(0.5f);
    return aJob;
}

Request CSession::mMakeAlign(bool bCompare, const OracleAlign& rJob, int iMProj, int iAProj) const
{
    const std::uint32_t uiPlain = bCompare ? Msg::eCompare : Msg::eTransform;
    const std::uint32_t uiLog = bCompare ? Msg::eComparel : Msg::eTransforml;
    Request aRequest = {
        rJob.bLog ? uiLog : uiPlain, {std::uint32_t(iMProj), std::uint32_t(iAProj)}, {}};
    if (bCompare) aRequest.vuiFields.insert(aRequest.vuiFields.end(), {0, 0});  // all rows count
    for (const float fValue : rJob.afMatrix) aRequest.vuiFields.push_back(Bits(fValue));
    const std::size_t tScales = rJob.bLog ? 6 : 3;
    for (std::size_t k = 0; k < tScales; ++k)  // words 4 to 15, the rest is data
        (aRequest.vuiFields.size() < 12 ? aRequest.vuiFields : aRequest.vuiData)
            .push_back(Bits(rJob.afScale[k]));
    return aRequest;
}

bool CSession::mTransform()
{
    if (m_aModel.aMeasured.IsEmpty() && !mMeasured()) return false;
    if (m_aModel.aStack.IsEmpty() && !mStack(false)) return false;
    const OracleAlign aJob = mMakeAlignJob();
    const int iMProj = m_aRandom.Int(0, m_aModel.aMeasured.iN - 1);
    const int iAProj = m_aRandom.Int(0, m_aModel.aStack.iN - 1);
    if (!mServe(mMakeAlign(false, aJob, iMProj, iAProj))) return false;
    if (!mServe({Msg::eProjGet, {std::uint32_t(iAProj)}, {}})) return false;

    const std::vector<double> vdExpected =
        TransformImage(aJob, m_aModel.aMeasured, iMProj, m_aModel.aStack.iX, m_aModel.aStack.iY);
    const std::vector<float> vfGot = m_aReply.Floats();
    if (vfGot.size() != vdExpected.size()) return mWrong("transform: %zu pixels", vfGot.size());
    double dWorst = 0;
    for (std::size_t i = 0; i < vfGot.size(); ++i)
    {
        if (std::isnan(vdExpected[i]) != (vfGot[i] < g_fMissing))
            return mWrong("transform: pixel %zu is %g, not %g", i, vfGot[i], vdExpected[i]);
        if (std::isnan(vdExpected[i])) continue;
        const double dError = std::fabs(vfGot[i] - vdExpected[i]);
        dWorst = Larger(dWorst, dError);
    }
    std::ranges::copy(vfGot, m_aModel.aStack.Nth(iAProj).begin());
    return mAgrees(eTransformed, dWorst, g_dPixel);
}

bool CSession::mCompare()
{
    if (m_aModel.aMeasured.IsEmpty() && !mMeasured()) return false;
    if (m_aModel.aStack.IsEmpty() && !mStack(false)) return false;
    const OracleAlign aJob = mMakeAlignJob();
    const int iMProj = m_aRandom.Int(0, m_aModel.aMeasured.iN - 1);
    const int iAProj = m_aRandom.Int(0, m_aModel.aStack.iN - 1);
    if (!mServe(mMakeAlign(true, aJob, iMProj, iAProj))) return false;
    const AlignSums aExpected = SumImages(
        m_aModel.aStack.Nth(iAProj),
        TransformImage(aJob, m_aModel.aMeasured, iMProj, m_aModel.aStack.iX, m_aModel.aStack.iY));
    double dWorst = 0;
    for (std::size_t k = 0; k < aExpected.ad.size(); ++k)
    {
        if (aExpected.adSize[k] > 1e37) continue;  // missing pixels of the stack squared
        const double dGot = std::bit_cast<float>(m_aReply.Field(int(7 + k)));
        const double dError = std::fabs(dGot - aExpected.ad[k]) / (aExpected.adSize[k] + 1e-6);
        dWorst = Larger(dWorst, dError);
    }
    m_aModel.auiSums.emplace();
    std::copy_n(m_aReply.auiFields.begin() + 7, 8, m_aModel.auiSums->begin());
    return mAgrees(eCompared, dWorst, g_dSum);
}
