#include <cmath>

#include "SeriesParts.h"
#include "talven/SeriesAlign.h"

namespace talven
{
namespace
{

constexpr int g_iFolds = 4;
constexpr int g_iReach = 20;  // pixels of the bin that a view held out may want to move

}  // namespace

/// Compares each view with a volume made without it, where it is; nothing moves.
bool CSeriesAligner::mHoldOut()
{
    const CPhase aPhase(mGetMonitor(), "check");
    if (!mMatchFolds(g_iFolds, std::vector<int>(m_fAngles.size(), g_iReach))) return false;
    double dSquares = 0;
    for (const int i : m_viUsed)
        dSquares += std::pow(std::hypot(m_vdAcross[std::size_t(i)], m_vdAlong[std::size_t(i)]), 2);
    m_pAlignment->dWanted = m_iBin * std::sqrt(dSquares / double(m_viUsed.size()));
    m_pAlignment->dCorrelation = GetMedian(Pick(m_aMatches, m_viUsed, &ImageMatch::dCorrelation));
    for (std::size_t i = 0; i < m_fAngles.size(); ++i)
        m_pAlignment->aViews[i] = {!Has(m_viUsed, int(i)), m_aMatches[i]};
    return true;
}

/// Whether a view looks less like the volume of the others than it should. What is left to a
/// perfect correlation tells: a smooth specimen correlates well with anything.
bool CSeriesAligner::mStandsOut(int iView) const
{
    constexpr double dMostTimes = 10, dLeastMore = 0.02, dLeastAtEnds = 0.6;
    constexpr std::ptrdiff_t tEnds = 2, tBeside = 3;
    const auto tPlace = std::ranges::find(m_viByAngle, iView) - m_viByAngle.begin();
    const auto tLast = std::ssize(m_viByAngle) - 1;
    const double dCorrelation = m_aMatches[std::size_t(iView)].dCorrelation;
    // Volumes made without the outermost views know little about them.
    if (std::min(tPlace, tLast - tPlace) < tEnds)
        return dCorrelation < dLeastAtEnds * m_pAlignment->dCorrelation;
    std::vector<double> vdLeft;
    for (auto t = std::max(tEnds, tPlace - tBeside); t <= std::min(tLast - tEnds, tPlace + tBeside);
         ++t)
        if (t != tPlace && Has(m_viUsed, m_viByAngle[std::size_t(t)]))
            vdLeft.push_back(1 - m_aMatches[std::size_t(m_viByAngle[std::size_t(t)])].dCorrelation);
    const double dLeft = std::max(GetMedian(vdLeft), 1 - m_pAlignment->dCorrelation);
    return 1 - dCorrelation >
           std::max(dLeft + dLeastMore, std::min(dMostTimes * dLeft, dLeft + 0.5 * (1 - dLeft)));
}

/// Leaves out the views that stand out, and aligns the others again.
bool CSeriesAligner::mLeaveOut()
{
    constexpr int iMostTimes = 2;
    for (int n = 0; n < iMostTimes; ++n)
    {
        std::vector<int> viUsed;
        for (const int i : m_viUsed)
            if (!mStandsOut(i)) viUsed.push_back(i);
        const bool bSame = viUsed.size() == m_viUsed.size();
        m_viUsed = viUsed;
        for (std::size_t i = 0; i < m_fAngles.size(); ++i)
            m_pAlignment->aViews[i].bLeftOut = !Has(m_viUsed, int(i));
        if (bSame) return true;
        if (!mRunRounds({6, 2, 2, 0.01}) || !mHoldOut()) return false;
    }
    return true;
}

bool CSeriesAligner::mJudge()
{
    constexpr double dLeast = 0.3, dMostWanted = 1;
    m_pAlignment->aPlaces = ToRaw(m_aPlaces, m_aRaw, m_iBin);
    const double dCorrelation = m_pAlignment->dCorrelation, dWanted = m_pAlignment->dWanted;
    if (!(dCorrelation >= dLeast))
        return mFail(
            Format("views and volumes made without them do not agree: median correlation "
                   "%.2f, at least %g",
                   dCorrelation, dLeast));
    if (dWanted > dMostWanted)
        return mFail(
            Format("the views do not come to rest: volumes made without them would move "
                   "them by %.2f pixels, at most %g",
                   dWanted, dMostWanted));
    mWarn();
    return true;
}

void CSeriesAligner::mWarn()
{
    constexpr double dGood = 0.7, dStill = 0.3, dAmbiguous = 0.8;
    constexpr int iSeveral = 3;
    const SeriesAlignment& r = *m_pAlignment;
    const auto Warn = [&](bool bWarn, const std::string& strText)
    {
        if (bWarn) m_pAlignment->astrWarnings.push_back(strText);
    };
    Warn(r.dCorrelation < dGood,
         Format("views and volumes made without them agree poorly: median correlation %.2f",
                r.dCorrelation));
    Warn(r.dWanted > dStill,
         Format("volumes made without them would still move the views by %.2f pixels", r.dWanted));
    const auto IsAmbiguous = [&](int i)
    {
        const ImageMatch& rMatch = r.aViews[std::size_t(i)].aMatch;
        return rMatch.dSecond > dAmbiguous * rMatch.dCorrelation;
    };
    const auto iAmbiguous = std::ranges::count_if(m_viUsed, IsAmbiguous);
    Warn(iAmbiguous >= iSeveral,
         Format("%td views would fit nearly as well at another place", iAmbiguous));
    const auto iAtLimit = std::ranges::count_if(
        m_viUsed, [&](int i) { return r.aViews[std::size_t(i)].aMatch.bAtLimit; });
    Warn(iAtLimit > 0, Format("%td views would move farther than was looked", iAtLimit));
    if (r.aAxis.vdAngles.empty()) return;
    Warn(r.aAxis.bFlat, Format("the tilt axis cannot be told from these views: left at %g degrees",
                               r.aPlaces.dTiltAxis));
}

}  // namespace talven
