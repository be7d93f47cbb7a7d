#include "talven/CoarseAlign.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>

#include "talven/ImageMatch.h"
#include "talven/Text.h"

namespace talven
{
namespace
{

constexpr double g_dSuspicious = 0.6;     // of the median of the correlations before
constexpr std::size_t g_tRemembered = 9;  // correlations
constexpr int g_iSecondLimit = 4;         // pixels, once the place is known

/// Chains of views from the smallest tilt outwards.
class CCoarseAligner
{
public:
    CCoarseAligner(const CoarseRequest& rRequest, const ImageSize& rSize,
                   std::span<const float> fAngles, std::span<const float> fViews,
                   std::vector<CoarseView>& rViews)
        : m_rRequest(rRequest),
          m_aSize(rSize),
          m_fAngles(fAngles),
          m_fViews(fViews),
          m_rViews(rViews),
          m_aMatcher(rSize, rRequest.dLow, rRequest.dHigh),
          m_aTurn(Turn(rRequest.dTiltAxis)),
          m_vfReference(rSize.GetPixels()),
          m_vfStretched(rSize.GetPixels()),
          m_vfWeights(rSize.GetPixels())
    {
    }
    bool Run(const std::function<bool(int iDone)>& rGoOn);

private:
    double mGetCosine(int iView) const
    {
        return std::cos(m_fAngles[std::size_t(iView)] * std::numbers::pi / 180);
    }
    /// The view around a place, turned, and stretched across the tilt axis.
    void mSample(int iView, const ViewPlace& rPlace, double dStretch, std::span<float> fImage);
    void mFollow(int iInner, int iView);

    const CoarseRequest& m_rRequest;
    const ImageSize m_aSize;
    std::span<const float> m_fAngles, m_fViews;
    std::vector<CoarseView>& m_rViews;
    CImageMatcher m_aMatcher;
    ViewMap m_aTurn;  // from aligned to raw
    std::vector<float> m_vfReference, m_vfStretched, m_vfWeights;
};

bool CCoarseAligner::Run(const std::function<bool(int iDone)>& rGoOn)
{
    std::vector<int> viOrder(m_fAngles.size());
    std::iota(viOrder.begin(), viOrder.end(), 0);
    std::ranges::stable_sort(viOrder, {}, [&](int i) { return m_fAngles[std::size_t(i)]; });
    const int iFirst =
        int(std::ranges::max_element(viOrder, {}, [&](int i) { return mGetCosine(i); }) -
            viOrder.begin());
    int iDone = 1;
    std::vector<double> vdSeen;
    for (const int iStep : {1, -1})
    {
        // The second chain begins where the first one did.
        vdSeen.resize(std::min(vdSeen.size(), g_tRemembered));
        std::ranges::reverse(vdSeen);
        int iInner = iFirst;
        for (int i = iFirst + iStep; i >= 0 && i < int(viOrder.size()); i += iStep)
        {
            if (!rGoOn(iDone++)) return false;
            const int iView = viOrder[std::size_t(i)], iLast = viOrder[std::size_t(iInner)];
            CoarseView& rView = m_rViews[std::size_t(iView)];
            mFollow(iLast, iView);
            const std::size_t tSeen = std::min(vdSeen.size(), g_tRemembered);
            std::vector<double> vdLast(vdSeen.end() - std::ptrdiff_t(tSeen), vdSeen.end());
            std::ranges::sort(vdLast);
            rView.bGood =
                rView.dCorrelation > 0 &&
                (vdLast.empty() || rView.dCorrelation >= g_dSuspicious * vdLast[tSeen / 2]);
            if (rView.bGood)
            {
                vdSeen.push_back(rView.dCorrelation);
                iInner = i;
            }
            else
            {
                rView.aPlace = m_rViews[std::size_t(iLast)].aPlace;
            }
        }
    }
    return true;
}

void CCoarseAligner::mSample(int iView, const ViewPlace& rPlace, double dStretch,
                             std::span<float> fImage)
{
    const int iX = m_aSize.iX, iY = m_aSize.iY;
    const float* pfView = m_fViews.data() + std::size_t(iView) * m_aSize.GetPixels();
    const double dCentreX = 0.5 * (iX - 1), dCentreY = 0.5 * (iY - 1);
    for (int y = 0; y < iY; ++y)
        for (int x = 0; x < iX; ++x)
        {
            const double dAcross = dStretch * (x - dCentreX), dAlong = y - dCentreY;
            const double dU = dCentreX + rPlace.dX + m_aTurn.dA11 * dAcross + m_aTurn.dA12 * dAlong;
            const double dV = dCentreY + rPlace.dY + m_aTurn.dA21 * dAcross + m_aTurn.dA22 * dAlong;
            float& rPixel = fImage[std::size_t(y) * std::size_t(iX) + std::size_t(x)];
            rPixel = g_fMissing;
            if (!(dU >= 0 && dU <= iX - 1 && dV >= 0 && dV <= iY - 1)) continue;
            const int iU = std::min(int(dU), std::max(0, iX - 2));
            const int iV = std::min(int(dV), std::max(0, iY - 2));
            const auto fU = float(dU - iU), fV = float(dV - iV);
            const float* pf = pfView + std::size_t(iV) * std::size_t(iX) + std::size_t(iU);
            const int iRight = iX > 1 ? 1 : 0, iUp = iY > 1 ? iX : 0;
            const float fLower = pf[0] + fU * (pf[iRight] - pf[0]);
            const float fUpper = pf[iUp] + fU * (pf[iUp + iRight] - pf[iUp]);
            const float fValue = fLower + fV * (fUpper - fLower);
            if (!IsMissing(fValue)) rPixel = fValue;
        }
}

void CCoarseAligner::mFollow(int iInner, int iView)
{
    CoarseView& rView = m_rViews[std::size_t(iView)];
    const double dStretch = m_rRequest.bStretch ? mGetCosine(iView) / mGetCosine(iInner) : 1;
    mSample(iInner, m_rViews[std::size_t(iInner)].aPlace, 1, m_vfReference);
    std::vector<float> vfWeights(m_vfReference.size(), 1.0f);
    TaperToMissing(m_vfReference, m_aSize, m_rRequest.dTaper, vfWeights);
    for (const int iLimit : {m_rRequest.iLimit, g_iSecondLimit})
    {
        mSample(iView, rView.aPlace, dStretch, m_vfStretched);
        m_vfWeights = vfWeights;
        TaperToMissing(m_vfStretched, m_aSize, m_rRequest.dTaper, m_vfWeights);
        const ImageMatch aMatch =
            m_aMatcher.Find(m_vfStretched, m_vfReference, m_vfWeights, iLimit);
        rView.aPlace.dX += m_aTurn.dA11 * dStretch * aMatch.dX + m_aTurn.dA12 * aMatch.dY;
        rView.aPlace.dY += m_aTurn.dA21 * dStretch * aMatch.dX + m_aTurn.dA22 * aMatch.dY;
        rView.dCorrelation = aMatch.dCorrelation;
    }
}

}  // namespace

bool AlignCoarsely(const CoarseRequest& rRequest, const ImageSize& rSize,
                   std::span<const float> fAngles, std::span<const float> fViews,
                   const std::function<bool(int iDone)>& rGoOn, std::vector<CoarseView>& rViews)
{
    rViews.assign(fAngles.size(), {});
    return CCoarseAligner(rRequest, rSize, fAngles, fViews, rViews).Run(rGoOn);
}

bool CheckCoarseAngles(std::span<const float> fAngles, std::string& rError)
{
    const auto pBeyond =
        std::ranges::find_if(fAngles, [](float fAngle) { return !(std::fabs(fAngle) <= 80); });
    return pBeyond == fAngles.end() ||
           Fail(rError, Format("view %d at %g degrees: at most 80 either way",
                               int(pBeyond - fAngles.begin()) + 1, double(*pBeyond)));
}

}  // namespace talven
