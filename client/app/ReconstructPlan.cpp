#include "ReconstructPlan.h"

#include <algorithm>
#include <numeric>
#include <thread>

#include "Lists.h"
#include "Transfer.h"
#include "talven/Angles.h"
#include "talven/Schedule.h"

namespace talven
{

bool CReconstructPlan::Make(const ReconstructArgs& rArgs)
{
    if (!m_aStack.Open(rArgs.m_strTilts)) return mFail(m_aStack.GetError());
    if (!mSelectViews(rArgs) || !mChooseMethod(rArgs) || !mChooseSmoothing(rArgs)) return false;

    const MrcHeader& rHeader = m_aStack.GetHeader();
    m_aSize = {rHeader.m_iX,
               rHeader.m_iY,
               static_cast<int>(m_viViews.size()),
               rArgs.m_iWidth > 0 ? rArgs.m_iWidth : rHeader.m_iX,
               rArgs.m_iThickness,
               m_iSmoothInterval > 0};
    if (!CheckJobSize(m_aSize, rArgs.m_aServer, m_strError)) return false;

    if (rArgs.m_strWeightBox.empty()) return true;
    std::vector<double> vdBox;
    std::string strError;
    if (!ParseNumbers(rArgs.m_strWeightBox, 4, vdBox, strError))
        return mFail("--weight-box: " + strError);
    if (vdBox[2] <= 0 || vdBox[3] <= 0)
        return mFail("--weight-box: the half sizes must be above 0");
    m_aBox = {static_cast<float>(vdBox[0]), static_cast<float>(vdBox[1]),
              static_cast<float>(vdBox[2]), static_cast<float>(vdBox[3])};
    return true;
}

bool CReconstructPlan::mSelectViews(const ReconstructArgs& rArgs)
{
    std::vector<float> vfAll;
    if (!ReadAngles(rArgs.m_strAngles, vfAll, m_strError)) return false;
    const int iSections = m_aStack.GetHeader().m_iZ;
    if (vfAll.size() != static_cast<std::size_t>(iSections))
        return mFail(rArgs.m_strAngles + " has " + std::to_string(vfAll.size()) +
                     (vfAll.size() == 1 ? " angle, but " : " angles, but ") + rArgs.m_strTilts +
                     " has " + std::to_string(iSections) + " sections");

    m_viViews = AllSections(iSections);
    const bool bInclude = !rArgs.m_strInclude.empty();
    const std::string& strList = bInclude ? rArgs.m_strInclude : rArgs.m_strExclude;
    if (!strList.empty())
    {
        const std::string strOption = bInclude ? "--include: " : "--exclude: ";
        std::vector<int> viListed;
        std::string strError;
        if (!ParseViews(strList, viListed, strError)) return mFail(strOption + strError);
        if (viListed.back() >= iSections)
            return mFail(strOption + "view " + std::to_string(viListed.back() + 1) +
                         ", but the stack has " + std::to_string(iSections) + " sections");
        std::erase_if(
            m_viViews, [&](int iView)
            { return std::binary_search(viListed.begin(), viListed.end(), iView) != bInclude; });
        if (m_viViews.empty()) return mFail(strOption + "no view is left");
    }
    for (const int iView : m_viViews) m_vfAngles.push_back(vfAll[std::size_t(iView)]);
    return true;
}

bool CReconstructPlan::mChooseMethod(const ReconstructArgs& rArgs)
{
    m_vuiOrder.resize(m_viViews.size());
    std::iota(m_vuiOrder.begin(), m_vuiOrder.end(), 0u);
    m_aOptions.m_eMethod = rArgs.m_strMethod == "sart" ? EMethod::SART
                           : rArgs.m_strMethod == "em" ? EMethod::EM
                                                       : EMethod::BACKPROJ;
    if (m_aOptions.m_eMethod == EMethod::BACKPROJ) return true;
    return mChooseSubsets(rArgs);
}

bool CReconstructPlan::mChooseSubsets(const ReconstructArgs& rArgs)
{
    const int iProjs = static_cast<int>(m_viViews.size());
    std::string strError;
    std::vector<std::uint32_t>& rSizes = m_aOptions.m_vuiSetSizes;
    if (rArgs.m_strSubsetSizes.empty())
    {
        if (rArgs.m_iSubsets > iProjs)
            return mFail(
                Format("--subsets: %d subsets of %d projections", rArgs.m_iSubsets, iProjs));
        // Six projections still spread over the tilt range, and noise averages out among them.
        const int iSubsets =
            rArgs.m_iSubsets > 0 ? rArgs.m_iSubsets : std::max(1, (iProjs + 3) / 6);
        rSizes = DivideIntoSubsets(iProjs, iSubsets);
    }
    else
    {
        if (!ParseSizes(rArgs.m_strSubsetSizes, rSizes, strError))
            return mFail("--subset-sizes: " + strError);
        const auto ulSum = std::accumulate(rSizes.begin(), rSizes.end(), std::uint64_t(0));
        if (ulSum != m_viViews.size())
            return mFail("--subset-sizes: they add up to " + std::to_string(ulSum) + ", but " +
                         std::to_string(iProjs) + " projections take part");
    }

    CRelaxation aRelaxation;
    m_aOptions.m_iIterations = rArgs.m_iIterations;
    if (!aRelaxation.Parse(rArgs.m_strRelaxation, strError) ||
        !aRelaxation.MakeTable(rArgs.m_iIterations, static_cast<int>(rSizes.size()),
                               m_aOptions.m_vfRelax, strError))
        return mFail("--relaxation: " + strError);
    if (rArgs.m_strOrder == "interleaved" && rSizes.size() > 1)
        m_vuiOrder = InterleaveSubsets(std::vector(m_vuiOrder), m_vfAngles, rSizes);
    return true;
}

bool CReconstructPlan::mChooseSmoothing(const ReconstructArgs& rArgs)
{
    if (rArgs.m_strSmooth.empty()) return true;
    double dSigma = 0;
    int iInterval = 1;
    std::string strError;
    if (!ParseSmoothing(rArgs.m_strSmooth, dSigma, iInterval, strError))
        return mFail("--smooth: " + strError);
    if (m_aOptions.m_eMethod == EMethod::BACKPROJ)
        return mFail("--smooth: back projection has no iterations to smooth between");
    // A server does not run iterations past the last whole interval.
    if (rArgs.m_iIterations % iInterval != 0)
        return mFail(Format("--smooth: %d iterations are no whole number of intervals of %d",
                            rArgs.m_iIterations, iInterval));
    m_iSmoothInterval = iInterval;
    m_aSmoothKernel = MakeGaussianKernel(dSigma);
    return true;
}

std::string CReconstructPlan::DescribeMethod() const
{
    if (m_aOptions.m_eMethod == EMethod::BACKPROJ) return "back projection";
    std::string strText =
        Format("%s, %d iteration%s", m_aOptions.m_eMethod == EMethod::SART ? "SART" : "EM",
               m_aOptions.m_iIterations, m_aOptions.m_iIterations == 1 ? "" : "s");
    if (m_aOptions.m_vuiSetSizes.size() > 1)
        strText += Format(", %zu subsets", m_aOptions.m_vuiSetSizes.size());
    if (m_iSmoothInterval > 0) strText += ", smoothed";
    return strText;
}

std::string CReconstructPlan::Describe(const ReconstructArgs& rArgs) const
{
    const auto [pfLow, pfHigh] = std::minmax_element(m_vfAngles.begin(), m_vfAngles.end());
    int iDevices = rArgs.m_aServer.m_iDevices;
    if (iDevices == 0) iDevices = static_cast<int>(std::thread::hardware_concurrency());
    return Format(
        "%s: %d x %d, %d of %d angles from %g to %g degrees -> volume %d x %d x %d, %s; "
        "the server needs %s of memory",
        rArgs.m_strTilts.c_str(), m_aSize.m_iProjX, m_aSize.m_iProjY, m_aSize.m_iProjs,
        m_aStack.GetHeader().m_iZ, double(*pfLow), double(*pfHigh), m_aSize.m_iVolX,
        m_aSize.m_iProjY, m_aSize.m_iVolZ, DescribeMethod().c_str(),
        FormatBytes(m_aSize.GetBytes(std::clamp(iDevices, 1, 16))).c_str());
}

bool CReconstructPlan::mFail(const std::string& strError)
{
    m_strError = strError;
    return false;
}

}  // namespace talven
