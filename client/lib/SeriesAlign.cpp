#include "talven/SeriesAlign.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "SeriesParts.h"
#include "talven/CoarseAlign.h"
#include "talven/ViewLevels.h"

namespace talven
{
namespace
{

constexpr int g_iLeastPixels = 16;  // along an edge of binned views
constexpr int g_iComfortablePixels = 28;
constexpr double g_dStill = 0.01;                   // raw pixels
constexpr int g_iFirstLimit = 6, g_iNextLimit = 3;  // pixels of the bin

}  // namespace

std::vector<int> ChooseBins(const ImageSize& rRaw)
{
    const int iEdge = std::min(rRaw.iX, rRaw.iY);
    if (iEdge >= 4 * g_iComfortablePixels) return {4, 2};
    if (iEdge >= 2 * g_iComfortablePixels) return {2, 1};
    return {1};
}

bool CheckSeriesAlign(const SeriesAlignRequest& rRequest, const ImageSize& rRaw,
                      std::span<const float> fAngles, std::string& rError)
{
    constexpr std::size_t tLeastViews = 6;
    for (const int iBin : rRequest.viBins.empty() ? ChooseBins(rRaw) : rRequest.viBins)
        if (std::min(rRaw.iX, rRaw.iY) / iBin < g_iLeastPixels)
            return Fail(rError, Format("bins: views of %d x %d in blocks of %d make %d x %d, at "
                                       "least %d x %d",
                                       rRaw.iX, rRaw.iY, iBin, rRaw.iX / iBin, rRaw.iY / iBin,
                                       g_iLeastPixels, g_iLeastPixels));
    if (!std::ranges::is_sorted(rRequest.viBins, std::greater()))
        return Fail(rError, "bins: the largest comes first");
    if (fAngles.size() < tLeastViews)
        return Fail(rError, Format("tilts: %zu views cannot be told from each other, at least %zu",
                                   fAngles.size(), tLeastViews));
    std::string strError;
    if (rRequest.bIsolated || CheckCoarseAngles(fAngles, strError)) return true;
    return Fail(rError, "angles: " + strError + ", or isolated");
}

std::vector<int> SeriesAlignment::ListLeftOut() const
{
    std::vector<int> viLeftOut;
    for (std::size_t i = 0; i < aViews.size(); ++i)
        if (aViews[i].bLeftOut) viLeftOut.push_back(int(i));
    return viLeftOut;
}

bool CSeriesAligner::Run(const SeriesAlignRequest& rRequest, const ImageSize& rRaw,
                         std::span<const float> fAngles, const ImageSource& rViews,
                         SeriesAlignment& rAlignment)
{
    m_aRequest = rRequest;
    if (m_aRequest.viBins.empty()) m_aRequest.viBins = ChooseBins(rRaw);
    m_aRaw = rRaw;
    m_fAngles = fAngles;
    m_pViews = &rViews;
    m_pAlignment = &rAlignment;
    rAlignment = {};
    rAlignment.aPlaces = {rRequest.dTiltAxis, std::vector<ViewPlace>(fAngles.size())};
    rAlignment.aViews.resize(fAngles.size());
    m_viUsed = m_viByAngle = CountTo(fAngles.size());
    std::ranges::stable_sort(m_viByAngle, {}, [&](int i) { return fAngles[std::size_t(i)]; });
    m_aMatches.assign(fAngles.size(), {});
    m_bAxisDone = rRequest.eAxis == EAxis::eGiven;
    bool bFirst = true;
    for (const int iBin : m_aRequest.viBins)
        if (!mAlignAt(iBin, std::exchange(bFirst, false))) return false;
    return mHoldOut() && mLeaveOut() && mJudge();
}

bool CSeriesAligner::mAlignAt(int iBin, bool bFirst)
{
    m_iBin = iBin;
    m_aPlaces = ToBinned(m_pAlignment->aPlaces, m_aRaw, iBin);
    std::vector<float> vfViews;
    if (!mReadViews(vfViews) || (bFirst && !mStart(vfViews)) || !mOpenMatcher(vfViews))
        return false;
    if (bFirst && !m_bAxisDone && (!mRunRounds({6, 2, g_iFirstLimit, 0}) || !mFindAxis()))
        return false;
    m_bAxisDone = true;
    const int iLimit = bFirst ? g_iFirstLimit : g_iNextLimit;
    // Views that hold all of a specimen tell more, and are mostly small ones.
    if (!mRunRounds(m_aRequest.bIsolated ? Rounds{20, 2, iLimit, 0.3 * g_dStill}
                                         : Rounds{8, 2, iLimit, g_dStill}))
        return false;
    m_pAlignment->aPlaces = ToRaw(m_aPlaces, m_aRaw, iBin);
    return true;
}

bool CSeriesAligner::mReadViews(std::vector<float>& rViews)
{
    const std::size_t tPixels = mGetBinned().GetPixels();
    std::vector<float> vfRaw(m_aRaw.GetPixels());
    rViews.resize(tPixels * m_fAngles.size());
    CPhase aPhase(mGetMonitor(), "read", int(m_fAngles.size()), sizeof(float) * vfRaw.size());
    for (std::size_t i = 0; i < m_fAngles.size(); ++i)
    {
        std::string strError;
        if (!mGoOn()) return false;
        if (!(*m_pViews)(int(i), vfRaw, strError)) return mFail(strError);
        BinImage(vfRaw, m_aRaw, m_iBin, std::span(rViews).subspan(i * tPixels, tPixels));
        aPhase.Step(int(i) + 1);
    }
    if (m_aRequest.bDark)
        for (float& rfPixel : rViews)
            if (!IsMissing(rfPixel)) rfPixel = -rfPixel;
    return true;
}

/// Places to begin with.
bool CSeriesAligner::mStart(std::span<const float> fViews)
{
    double dScore = 0;
    if (m_aRequest.eAxis == EAxis::eUnknown ? !mSearchAxis(fViews)
                                            : !mAlignCoarsely(fViews, dScore))
        return false;
    m_vdLevels = FindLevels(mGetBinned(), m_fAngles, !m_aRequest.bIsolated, fViews, m_bBeyond);
    if (m_aRequest.bIsolated) mCentreMasses(fViews);
    return true;
}

/// \param rScore  receives the mean correlation of neighbours
bool CSeriesAligner::mAlignCoarsely(std::span<const float> fViews, double& rScore)
{
    CoarseRequest aRequest;
    aRequest.dTiltAxis = m_aPlaces.dTiltAxis;
    aRequest.iLimit = int(std::ceil(m_aRequest.dLimit / m_iBin));
    aRequest.bStretch = !m_aRequest.bIsolated;
    CPhase aPhase(mGetMonitor(), "coarse alignment", int(m_fAngles.size()));
    const auto GoOn = [&](int iDone)
    {
        aPhase.Step(iDone);
        return mGoOn();
    };
    std::vector<CoarseView> aViews;
    if (!AlignCoarsely(aRequest, mGetBinned(), m_fAngles, fViews, GoOn, aViews)) return false;
    rScore = 0;
    m_viUsed.clear();
    for (std::size_t i = 0; i < aViews.size(); ++i)
    {
        m_aPlaces.aViews[i] = aViews[i].aPlace;
        rScore += aViews[i].dCorrelation / double(aViews.size());
        if (aViews[i].bGood) m_viUsed.push_back(int(i));
    }
    return true;
}

/// Takes the direction in which neighbours, stretched across it, agree best.
bool CSeriesAligner::mSearchAxis(std::span<const float> fViews)
{
    double dBest = -1, dBestScore = -1, dScore = 0;
    const auto Try = [&](double dAngle)
    {
        m_aPlaces.dTiltAxis = dAngle;
        if (!mAlignCoarsely(fViews, dScore)) return false;
        if (dScore > dBestScore) dBestScore = dScore, dBest = dAngle;
        return true;
    };
    for (int iAngle = -90; iAngle < 90; iAngle += 15)
        if (!Try(iAngle)) return false;
    for (const double dStep : {7.5, 4.0})
        for (const double dAngle : {dBest - dStep, dBest + dStep})
            if (!Try(dAngle)) return false;
    m_aPlaces.dTiltAxis = dBest;
    return mAlignCoarsely(fViews, dScore);
}

/// The centre of mass of a whole specimen lies where that of its views does: no chain of views can
/// drift from that.
void CSeriesAligner::mCentreMasses(std::span<const float> fViews)
{
    const ImageSize aSize = mGetBinned();
    const ViewMap aBack = Turn(-m_aPlaces.dTiltAxis);
    for (const int i : m_viUsed)
    {
        const auto tView = std::size_t(i);
        double dMass = 0, dMoment = 0;
        for (std::size_t p = 0; p < aSize.GetPixels(); ++p)
        {
            const float fPixel = fViews[tView * aSize.GetPixels() + p];
            if (IsMissing(fPixel)) continue;
            const std::size_t tRow = p / std::size_t(aSize.iX);
            const double dX = double(p % std::size_t(aSize.iX)) - 0.5 * (aSize.iX - 1);
            const double dY = double(tRow) - 0.5 * (aSize.iY - 1);
            const double dValue = double(fPixel) + m_vdLevels[tView];
            dMass += dValue;
            dMoment += dValue * (aBack.dA11 * dX + aBack.dA12 * dY);
        }
        const ViewPlace& r = m_aPlaces.aViews[tView];
        const double dAcross = aBack.dA11 * r.dX + aBack.dA12 * r.dY;
        if (dMass > 0) m_aPlaces.Move(tView, dMoment / dMass - dAcross, 0);
    }
}

bool CSeriesAligner::mOpenMatcher(std::span<const float> fViews)
{
    MatchRequest aMatch;
    aMatch.aViews = mGetBinned();
    aMatch.dTiltAxis = m_aPlaces.dTiltAxis;
    aMatch.iThickness = std::max(4, int(std::lround(double(m_aRequest.iThickness) / m_iBin)));
    aMatch.bIsolated = m_aRequest.bIsolated;
    if (m_aRequest.bIsolated) aMatch.dWidth = 1.3, aMatch.dLow = 0.003;
    // Wide edges let views come close; narrow ones then lose less of what there is to compare.
    if (m_iBin != m_aRequest.viBins.front()) aMatch.dTaper = 0.05;
    // What comes in from outside the views keeps a volume from being exact: it is only fitted to.
    aMatch.iIterations = m_bBeyond ? 12 : 20;
    m_pMatcher = std::make_unique<CProjectionMatcher>(mGetLink(), mGetMonitor());
    return m_pMatcher->Open(aMatch, m_fAngles, fViews) || mFail(m_pMatcher->GetError());
}

}  // namespace talven
