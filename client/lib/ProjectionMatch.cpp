#include "talven/ProjectionMatch.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "talven/Schedule.h"

namespace talven
{
namespace
{

constexpr int g_iViewsPerSubset = 6;

std::vector<std::uint32_t> Count(std::span<const int> iViews)
{
    return {iViews.begin(), iViews.end()};
}

}  // namespace

bool CProjectionMatcher::Open(const MatchRequest& rRequest, std::span<const float> fAngles,
                              std::span<const float> fViews)
{
    m_aRequest = rRequest;
    m_vfAngles.assign(fAngles.begin(), fAngles.end());
    ViewAlignment aAlignment;
    std::string strError;
    if (!MakeViewAlignment({.dTiltAxis = rRequest.dTiltAxis}, rRequest.aViews, fAngles, aAlignment,
                           strError))
        return mFail(strError);
    m_aAligned = aAlignment.aAligned;
    m_iWidth = int(std::lround(rRequest.dWidth * m_aAligned.iX));
    m_vfAligned.resize(m_aAligned.GetPixels() * fAngles.size());
    SetRound(false);
    m_aMatcher.emplace(m_aAligned, rRequest.dLow, rRequest.dHigh);

    CSession& rSession = mGetSession();
    const std::size_t tPixels = rRequest.aViews.GetPixels();
    const auto iViews = int(fAngles.size());
    bool bDone = rSession.SetStackSize(m_aAligned.iX, m_aAligned.iY, fAngles) &&
                 rSession.SetWeightBox(nullptr) &&
                 rSession.SetMeasuredSize(rRequest.aViews.iX, rRequest.aViews.iY, iViews);
    for (int i = 0; bDone && i < iViews; ++i)
        bDone = rSession.SetMeasured(i, fViews.subspan(std::size_t(i) * tPixels, tPixels));
    return mServer(bDone && rSession.Flush());
}

void CProjectionMatcher::SetRound(bool bRound)
{
    constexpr double dSoft = 0.3;  // share of the radius
    m_vfWindow.assign(m_aAligned.GetPixels(), 1.0f);
    const auto tX = std::size_t(m_aAligned.iX);
    for (std::size_t i = 0; bRound && i < m_vfWindow.size(); ++i)
    {
        const std::size_t tRow = i / tX;
        const double dX = 2 * double(i % tX) / (m_aAligned.iX - 1) - 1;
        const double dY = 2 * double(tRow) / (m_aAligned.iY - 1) - 1;
        const double dInside = std::clamp((1 - std::hypot(dX, dY)) / dSoft, 0.0, 1.0);
        m_vfWindow[i] = float(0.5 - 0.5 * std::cos(std::numbers::pi * dInside));
    }
}

bool CProjectionMatcher::Align(const ViewPlaces& rPlaces, std::span<const double> dLevels)
{
    ViewAlignment aAlignment;
    std::string strError;
    if (!MakeViewAlignment({.aMaps = rPlaces.MakeMaps(), .aSize = m_aAligned}, m_aRequest.aViews,
                           m_vfAngles, aAlignment, strError))
        return mFail(strError);
    CSession& rSession = mGetSession();
    const auto iViews = int(m_vfAngles.size());
    for (int i = 0; i < iViews; ++i)
        if (!mGoOn() || !mServer(rSession.Transform(i, i, aAlignment.aMaps[std::size_t(i)],
                                                    {.fOffset = float(dLevels[std::size_t(i)])})))
            return false;
    const auto Take = [this](int i, std::span<const float> fPixels)
    {
        std::ranges::copy(fPixels, mGetAligned(i).begin());
        return true;
    };
    if (!mServer(rSession.GetProjections(iViews, m_aAligned.GetPixels(), Take))) return false;
    for (int i = 0; i < iViews; ++i)
    {
        mCutRays(i);
        if (!mSend(i)) return false;
    }
    return mServer(rSession.Flush());
}

bool CProjectionMatcher::mSend(int iView)
{
    return mServer(mGetSession().SetProjection(iView, mGetAligned(iView)));
}

/// Columns whose rays do not cross the volume from its bottom to its top are missing; with an
/// isolated specimen only those whose rays pass it by.
void CProjectionMatcher::mCutRays(int iView)
{
    const double dAngle = double(m_vfAngles[std::size_t(iView)]) * std::numbers::pi / 180;
    const double dTop = m_iWidth * std::fabs(std::cos(dAngle));
    const double dSide = m_aRequest.iThickness * std::fabs(std::sin(dAngle));
    const double dInside = m_aRequest.bIsolated
                               ? 0.5 * (dTop + dSide)
                               : std::max(0.5 * (dTop - dSide), m_aAligned.iX / 8.0);
    const std::span<float> fView = mGetAligned(iView);
    const auto tX = std::size_t(m_aAligned.iX);
    for (std::size_t i = 0; i < fView.size(); ++i)
    {
        const double dX = double(i % tX) - 0.5 * (m_aAligned.iX - 1);
        if (std::fabs(dX) > dInside || IsMissing(fView[i])) fView[i] = g_fMissing;
    }
}

bool CProjectionMatcher::mReconstruct(std::span<const int> iUsed)
{
    const auto iViews = int(iUsed.size());
    ReconOptions aOptions;
    aOptions.iIterations = m_aRequest.iIterations;
    aOptions.vuiSetSizes = DivideIntoSubsets(iViews, std::max(1, iViews / g_iViewsPerSubset));
    aOptions.vfRelax.assign(aOptions.vuiSetSizes.size() * std::size_t(aOptions.iIterations),
                            float(m_aRequest.dRelaxation));
    CSession& rSession = mGetSession();
    // A volume of another number of voxels is empty.
    return mServer(rSession.SetVolumeSize(1, 1, 1) &&
                   rSession.SetVolumeSize(m_iWidth, m_aAligned.iY, m_aRequest.iThickness) &&
                   rSession.SelectProjections(
                       InterleaveSubsets(Count(iUsed), m_vfAngles, aOptions.vuiSetSizes)) &&
                   rSession.SetReconOptions(aOptions) && rSession.Reconstruct());
}

bool CProjectionMatcher::Match(std::span<const int> iUsed, std::span<const int> iMatched,
                               std::span<const int> iLimits, std::span<ImageMatch> aMatches)
{
    CSession& rSession = mGetSession();
    if (!mGoOn() || !mReconstruct(iUsed) || !mGoOn() ||
        !mServer(rSession.SelectProjections(Count(iMatched)) && rSession.Reproject()))
        return false;
    std::vector<float> vfWeights(m_aAligned.GetPixels());
    for (const int i : iMatched)
    {
        const auto Take = [&](int, std::span<const float> fPixels)
        {
            const std::span<float> fView = mGetAligned(i);
            vfWeights = m_vfWindow;
            TaperToMissing(fView, m_aAligned, m_aRequest.dTaper, vfWeights);
            aMatches[std::size_t(i)] =
                m_aMatcher->Find(fView, fPixels, vfWeights, iLimits[std::size_t(i)]);
            return true;
        };
        // The reprojection has taken the view's place on the server.
        if (!mGoOn() || !mServer(rSession.GetProjection(i, m_aAligned.GetPixels(), Take)) ||
            !mSend(i))
            return false;
    }
    return mServer(rSession.Flush());
}

}  // namespace talven
