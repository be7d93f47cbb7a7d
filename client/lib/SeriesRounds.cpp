#include <cmath>
#include <optional>
#include <utility>

#include "SeriesParts.h"
#include "talven/AlignGauge.h"
#include "talven/SeriesAlign.h"

namespace talven
{
namespace
{

constexpr int g_iLastLimit = 2;      // pixels of the bin
constexpr std::size_t g_tDepth = 5;  // of the acceleration
constexpr double g_dAlike = 0.6;     // of the median: a view that looks like the volume

}  // namespace

/// Compares all views, where they are now, with a volume of the used ones, and finds how they shall
/// move.
bool CSeriesAligner::mMatchAll(int iLimit)
{
    const std::size_t tViews = m_fAngles.size();
    // Those that are not used may be anywhere.
    std::vector<int> viLimits(tViews, std::max(iLimit, int(m_aRequest.dLimit / m_iBin)));
    for (const int i : m_viUsed) viLimits[std::size_t(i)] = iLimit;
    // Volumes of other views pull harder, which it takes at first where much comes in from outside;
    // those of all views are more exact.
    const bool bPull = m_bBeyond && m_bAxisDone && m_iBin == m_aRequest.viBins.front();
    if (!mMatchFolds(bPull ? 2 : 1, viLimits)) return false;
    double dSquares = 0;
    for (const int i : m_viUsed)
        dSquares += std::pow(std::hypot(m_vdAcross[std::size_t(i)], m_vdAlong[std::size_t(i)]), 2);
    m_pAlignment->aRounds.push_back(
        {m_iBin, m_iBin * std::sqrt(dSquares / double(m_viUsed.size())),
         GetMean(Pick(m_aMatches, m_viUsed, &ImageMatch::dCorrelation))});
    // Intensities drift, and what comes in from outside does not follow any course: in time the
    // views' means are what the volume says. Not before the axis is known, or it learns to agree.
    for (std::size_t i = 0; i < tViews && m_bAxisDone && !m_aRequest.bIsolated; ++i)
        m_vdLevels[i] += m_aMatches[i].dLevel;
    return true;
}

/// Deals the views out by angle, and compares those of each part with a volume of the used ones of
/// the others; one part: with a volume of all.
bool CSeriesAligner::mMatchFolds(int iFolds, std::span<const int> iLimits)
{
    if (!m_pMatcher->Align(m_aPlaces, m_vdLevels)) return mFail(m_pMatcher->GetError());
    for (int iFold = 0; iFold < iFolds; ++iFold)
    {
        std::vector<int> viMatched, viUsed;
        for (std::size_t n = 0; n < m_viByAngle.size(); ++n)
        {
            const bool bHeldOut = int(n % std::size_t(iFolds)) == iFold;
            if (bHeldOut) viMatched.push_back(m_viByAngle[n]);
            if ((!bHeldOut || iFolds == 1) && Has(m_viUsed, m_viByAngle[n]))
                viUsed.push_back(m_viByAngle[n]);
        }
        if (viUsed.empty()) return mFail("no view looks like any other");
        if (!m_pMatcher->Match(viUsed, viMatched, iLimits, m_aMatches))
            return mFail(m_pMatcher->GetError());
    }
    m_vdAcross = Pick(m_aMatches, CountTo(m_fAngles.size()), &ImageMatch::dX);
    m_vdAlong = Pick(m_aMatches, CountTo(m_fAngles.size()), &ImageMatch::dY);
    RemoveGauge(m_fAngles, m_viUsed, m_vdAcross, m_vdAlong);
    return true;
}

/// \param pPhase  that they are steps of; null: their own
bool CSeriesAligner::mRunRounds(const Rounds& rRounds, CPhase* pPhase)
{
    std::optional<CAnderson> aAcross, aAlong;
    std::size_t tUsed = 0;
    std::optional<CPhase> aOwn;
    if (!pPhase) aOwn.emplace(mGetMonitor(), Format("align, bin %d", m_iBin), rRounds.iCount);
    for (int iRound = 0; iRound < rRounds.iCount; ++iRound)
    {
        if (!mMatchAll(iRound < rRounds.iPlain ? rRounds.iLimit : g_iLastLimit)) return false;
        const AlignRound& rRound = m_pAlignment->aRounds.back();
        if (aOwn)
        {
            aOwn->Note(Format("moved %.2g pixels", rRound.dMoved));
            aOwn->Step(iRound + 1);
        }
        if (iRound >= rRounds.iPlain)
        {
            if (std::exchange(tUsed, m_viUsed.size()) != m_viUsed.size())
                aAcross.emplace(g_tDepth), aAlong.emplace(g_tDepth);
            mAccelerate(*aAcross, *aAlong);
        }
        for (std::size_t i = 0; i < m_fAngles.size(); ++i)
            m_aPlaces.Move(i, m_vdAcross[i], m_vdAlong[i]);
        if (rRound.dMoved < rRounds.dStop) break;
        mTakeBack();
    }
    return true;
}

/// Makes the moves of the used views larger ones.
void CSeriesAligner::mAccelerate(CAnderson& rAcross, CAnderson& rAlong)
{
    const ViewMap aBack = Turn(-m_aPlaces.dTiltAxis);
    std::vector<double> vdX, vdY, vdStepX, vdStepY;
    for (const int i : m_viUsed)
    {
        const ViewPlace& r = m_aPlaces.aViews[std::size_t(i)];
        vdX.push_back(aBack.dA11 * r.dX + aBack.dA12 * r.dY);
        vdY.push_back(aBack.dA21 * r.dX + aBack.dA22 * r.dY);
        vdStepX.push_back(m_vdAcross[std::size_t(i)]);
        vdStepY.push_back(m_vdAlong[std::size_t(i)]);
    }
    const std::vector<double> vdNextX = rAcross.Step(vdX, vdStepX);
    const std::vector<double> vdNextY = rAlong.Step(vdY, vdStepY);
    for (std::size_t n = 0; n < m_viUsed.size(); ++n)
    {
        m_vdAcross[std::size_t(m_viUsed[n])] = vdNextX[n] - vdX[n];
        m_vdAlong[std::size_t(m_viUsed[n])] = vdNextY[n] - vdY[n];
    }
}

/// Uses views that the coarse chain lost, and that look like the volume of the others now.
void CSeriesAligner::mTakeBack()
{
    const double dLeast =
        g_dAlike * GetMedian(Pick(m_aMatches, m_viUsed, &ImageMatch::dCorrelation));
    std::vector<int> viUsed;
    for (const int i : CountTo(m_fAngles.size()))
        if (Has(m_viUsed, i) || (m_aMatches[std::size_t(i)].dCorrelation > dLeast &&
                                 !m_pAlignment->aViews[std::size_t(i)].bLeftOut))
            viUsed.push_back(i);
    m_viUsed = viUsed;
}

/// Adds a direction to the curve; the places stay as they were.
bool CSeriesAligner::mTryAxis(double dAngle)
{
    AxisCurve& rCurve = m_pAlignment->aAxis;
    if (rCurve.Has(dAngle)) return true;
    const ViewPlaces aPlaces = m_aPlaces;
    m_aPlaces.dTiltAxis = dAngle;
    // Corners that turn in and out of the views must not count.
    m_pMatcher->SetRound(true);
    CPhase aPhase(mGetMonitor(), Format("tilt axis at %.4g degrees", dAngle));
    const std::size_t tBefore = m_pAlignment->aRounds.size();
    const bool bDone = mRunRounds({2, 2, g_iLastLimit + 1, 0}, &aPhase);
    for (AlignRound& r : std::span(m_pAlignment->aRounds).subspan(tBefore)) r.bTrial = true;
    m_pMatcher->SetRound(false);
    m_aPlaces = aPlaces;
    // The residual, not the correlation: noise and contrast differ from place to place.
    if (bDone) rCurve.Add(dAngle, -GetMean(Pick(m_aMatches, m_viUsed, &ImageMatch::dResidual)));
    return bDone;
}

bool CSeriesAligner::mFindAxis()
{
    constexpr double dStep = 1, dFineStep = 0.4, dReach = 2;  // degrees
    constexpr int iSteps = 4, iFineSteps = 2, iMostScans = 3;
    AxisCurve& rCurve = m_pAlignment->aAxis;
    const auto Scan = [&](double dMiddle, int iFar, double dEach)
    {
        for (int i = -iFar; i <= iFar; ++i)
            if (!mTryAxis(dMiddle + i * dEach)) return false;
        return true;
    };
    double dMiddle = m_aPlaces.dTiltAxis;
    for (int i = 0; i < iMostScans; ++i)
    {
        if (!Scan(dMiddle, iSteps, dStep)) return false;
        dMiddle = rCurve.GetBestAngle();
        if (!rCurve.IsBestAtEdge()) break;
    }
    if (rCurve.IsBestAtEdge())
        return mFail(
            Format("views and volume agree ever better with the tilt axis at %g degrees and "
                   "beyond: are the axis and the angles right?",
                   dMiddle));
    if (!Scan(dMiddle, iFineSteps, dFineStep)) return false;
    rCurve.Fit(dReach);
    if (!rCurve.bFlat) m_aPlaces.dTiltAxis = rCurve.dBest;
    return true;
}

}  // namespace talven
