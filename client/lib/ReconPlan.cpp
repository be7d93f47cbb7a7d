#include "talven/ReconPlan.h"

#include <algorithm>
#include <numeric>

#include "talven/Text.h"

namespace talven
{
namespace
{

/// Makes the parts of a plan one after the other; the reason for what cannot be is in rError.
class CPlanner
{
public:
    CPlanner(const ReconRequest& rRequest, ReconPlan& rPlan, std::string& rError)
        : m_rRequest(rRequest), m_rPlan(rPlan), m_rError(rError)
    {
    }
    bool SelectViews(std::span<const float> fAngles);
    bool ChooseMethod();
    bool ChooseSmoothing();
    bool ChooseBox();

private:
    bool mChooseSubsets();
    bool mFail(const std::string& strError)
    {
        m_rError = strError;
        return false;
    }

    const ReconRequest& m_rRequest;
    ReconPlan& m_rPlan;
    std::string& m_rError;
};

bool CPlanner::SelectViews(std::span<const float> fAngles)
{
    const auto iViews = static_cast<int>(fAngles.size());
    const bool bInclude = !m_rRequest.viInclude.empty();
    const std::vector<int>& rListed = bInclude ? m_rRequest.viInclude : m_rRequest.viExclude;
    const std::string strPart = bInclude ? "include: " : "exclude: ";
    if (!rListed.empty() && rListed.back() >= iViews)
        return mFail(strPart +
                     Format("view %d, but the stack has %d sections", rListed.back() + 1, iViews));
    for (int i = 0; i < iViews; ++i)
    {
        if (std::binary_search(rListed.begin(), rListed.end(), i) != bInclude) continue;
        m_rPlan.viViews.push_back(i);
        m_rPlan.vfAngles.push_back(fAngles[std::size_t(i)]);
    }
    return !m_rPlan.viViews.empty() || mFail(strPart + "no view is left");
}

bool CPlanner::ChooseMethod()
{
    m_rPlan.vuiOrder.resize(m_rPlan.viViews.size());
    std::iota(m_rPlan.vuiOrder.begin(), m_rPlan.vuiOrder.end(), 0u);
    ReconOptions& rOptions = m_rPlan.aOptions;
    rOptions.eMethod = m_rRequest.eMethod;
    if (rOptions.eMethod == EMethod::eBackProj) return true;

    if (!mChooseSubsets()) return false;
    rOptions.iIterations = m_rRequest.iIterations;
    const std::vector<std::uint32_t>& rSizes = rOptions.vuiSetSizes;
    std::string strError;
    if (!MakeRelaxTable(m_rRequest.aRelax, rOptions.iIterations, rSizes.size(), rOptions.vfRelax,
                        strError))
        return mFail("relaxation: " + strError);
    if (m_rRequest.bInterleave && rSizes.size() > 1)
        m_rPlan.vuiOrder =
            InterleaveSubsets(std::vector(m_rPlan.vuiOrder), m_rPlan.vfAngles, rSizes);
    return true;
}

bool CPlanner::mChooseSubsets()
{
    const auto iProjs = static_cast<int>(m_rPlan.viViews.size());
    const std::vector<std::uint32_t>& rAsked = m_rRequest.vuiSubsetSizes;
    if (rAsked.empty())
    {
        if (m_rRequest.iSubsets > iProjs)
            return mFail(
                Format("subsets: %d subsets of %d projections", m_rRequest.iSubsets, iProjs));
        // Six projections still spread over the tilt range, and noise averages out among them.
        m_rPlan.aOptions.vuiSetSizes = DivideIntoSubsets(
            iProjs, m_rRequest.iSubsets > 0 ? m_rRequest.iSubsets : std::max(1, (iProjs + 3) / 6));
        return true;
    }
    m_rPlan.aOptions.vuiSetSizes = rAsked;
    const auto ulSum = std::accumulate(rAsked.begin(), rAsked.end(), std::uint64_t(0));
    if (ulSum == m_rPlan.viViews.size()) return true;
    return mFail("subset-sizes: they add up to " + std::to_string(ulSum) + ", but " +
                 std::to_string(iProjs) + " projections take part");
}

bool CPlanner::ChooseSmoothing()
{
    if (m_rRequest.dSmoothSigma <= 0) return true;
    if (m_rRequest.eMethod == EMethod::eBackProj)
        return mFail("smooth: back projection has no iterations to smooth between");
    // A server does not run iterations past the last whole interval.
    if (m_rRequest.iIterations % m_rRequest.iSmoothInterval != 0)
        return mFail(Format("smooth: %d iterations are no whole number of intervals of %d",
                            m_rRequest.iIterations, m_rRequest.iSmoothInterval));
    m_rPlan.iSmoothInterval = m_rRequest.iSmoothInterval;
    m_rPlan.aSmoothKernel = MakeGaussianKernel(m_rRequest.dSmoothSigma);
    return true;
}

bool CPlanner::ChooseBox()
{
    m_rPlan.aBox = m_rRequest.aBox;
    if (!m_rPlan.aBox || (m_rPlan.aBox->fHalfX > 0 && m_rPlan.aBox->fHalfZ > 0)) return true;
    return mFail("weight-box: the half sizes must be above 0");
}

}  // namespace

bool MakeReconPlan(const ReconRequest& rRequest, int iX, int iY, std::span<const float> fAngles,
                   ReconPlan& rPlan, std::string& rError)
{
    rPlan = ReconPlan{};
    CPlanner aPlanner(rRequest, rPlan, rError);
    if (!aPlanner.SelectViews(fAngles) || !aPlanner.ChooseMethod() || !aPlanner.ChooseSmoothing() ||
        !aPlanner.ChooseBox())
        return false;
    rPlan.aSize = {iX,
                   iY,
                   static_cast<int>(rPlan.viViews.size()),
                   rRequest.iWidth > 0 ? rRequest.iWidth : iX,
                   rRequest.iThickness,
                   rPlan.iSmoothInterval > 0};
    return true;
}

std::string ReconPlan::DescribeMethod() const
{
    if (aOptions.eMethod == EMethod::eBackProj) return "back projection";
    std::string strText =
        Format("%s, %d iteration%s", aOptions.eMethod == EMethod::eSart ? "SART" : "EM",
               aOptions.iIterations, aOptions.iIterations == 1 ? "" : "s");
    if (aOptions.vuiSetSizes.size() > 1)
        strText += Format(", %zu subsets", aOptions.vuiSetSizes.size());
    if (iSmoothInterval > 0) strText += ", smoothed";
    return strText;
}

}  // namespace talven
