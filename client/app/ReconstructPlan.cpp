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
    if (!m_aStack.Open(rArgs.strTilts)) return mFail(m_aStack.GetError());
    if (!mSelectViews(rArgs) || !mChooseMethod(rArgs) || !mChooseSmoothing(rArgs)) return false;

    const MrcHeader& rHeader = m_aStack.GetHeader();
    m_aSize = {rHeader.iX,
               rHeader.iY,
               static_cast<int>(m_viViews.size()),
               rArgs.iWidth > 0 ? rArgs.iWidth : rHeader.iX,
               rArgs.iThickness,
               m_iSmoothInterval > 0};
    if (!CheckJobSize(m_aSize, rArgs.aServer, m_strError)) return false;

    if (rArgs.strWeightBox.empty()) return true;
    std::vector<double> vdBox;
    std::string strError;
    if (!ParseNumbers(rArgs.strWeightBox, 4, vdBox, strError))
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
    if (!ReadAngles(rArgs.strAngles, vfAll, m_strError)) return false;
    const int iSections = m_aStack.GetHeader().iZ;
    if (vfAll.size() != static_cast<std::size_t>(iSections))
        return mFail(rArgs.strAngles + " has " + std::to_string(vfAll.size()) +
                     (vfAll.size() == 1 ? " angle, but " : " angles, but ") + rArgs.strTilts +
                     " has " + std::to_string(iSections) + " sections");

    m_viViews = AllSections(iSections);
    const bool bInclude = !rArgs.strInclude.empty();
    const std::string& strList = bInclude ? rArgs.strInclude : rArgs.strExclude;
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
    m_aOptions.eMethod = rArgs.strMethod == "sart" ? EMethod::eSart
                         : rArgs.strMethod == "em" ? EMethod::eEm
                                                   : EMethod::eBackProj;
    if (m_aOptions.eMethod == EMethod::eBackProj) return true;
    return mChooseSubsets(rArgs);
}

bool CReconstructPlan::mChooseSubsets(const ReconstructArgs& rArgs)
{
    const int iProjs = static_cast<int>(m_viViews.size());
    std::string strError;
    std::vector<std::uint32_t>& rSizes = m_aOptions.vuiSetSizes;
    if (rArgs.strSubsetSizes.empty())
    {
        if (rArgs.iSubsets > iProjs)
            return mFail(Format("--subsets: %d subsets of %d projections", rArgs.iSubsets, iProjs));
        // Six projections still spread over the tilt range, and noise averages out among them.
        const int iSubsets = rArgs.iSubsets > 0 ? rArgs.iSubsets : std::max(1, (iProjs + 3) / 6);
        rSizes = DivideIntoSubsets(iProjs, iSubsets);
    }
    else
    {
        if (!ParseSizes(rArgs.strSubsetSizes, rSizes, strError))
            return mFail("--subset-sizes: " + strError);
        const auto ulSum = std::accumulate(rSizes.begin(), rSizes.end(), std::uint64_t(0));
        if (ulSum != m_viViews.size())
            return mFail("--subset-sizes: they add up to " + std::to_string(ulSum) + ", but " +
                         std::to_string(iProjs) + " projections take part");
    }

    CRelaxation aRelaxation;
    m_aOptions.iIterations = rArgs.iIterations;
    if (!aRelaxation.Parse(rArgs.strRelaxation, strError) ||
        !aRelaxation.MakeTable(rArgs.iIterations, static_cast<int>(rSizes.size()),
                               m_aOptions.vfRelax, strError))
        return mFail("--relaxation: " + strError);
    if (rArgs.strOrder == "interleaved" && rSizes.size() > 1)
        m_vuiOrder = InterleaveSubsets(std::vector(m_vuiOrder), m_vfAngles, rSizes);
    return true;
}

bool CReconstructPlan::mChooseSmoothing(const ReconstructArgs& rArgs)
{
    if (rArgs.strSmooth.empty()) return true;
    double dSigma = 0;
    int iInterval = 1;
    std::string strError;
    if (!ParseSmoothing(rArgs.strSmooth, dSigma, iInterval, strError))
        return mFail("--smooth: " + strError);
    if (m_aOptions.eMethod == EMethod::eBackProj)
        return mFail("--smooth: back projection has no iterations to smooth between");
    // A server does not run iterations past the last whole interval.
    if (rArgs.iIterations % iInterval != 0)
        return mFail(Format("--smooth: %d iterations are no whole number of intervals of %d",
                            rArgs.iIterations, iInterval));
    m_iSmoothInterval = iInterval;
    m_aSmoothKernel = MakeGaussianKernel(dSigma);
    return true;
}

std::string CReconstructPlan::DescribeMethod() const
{
    if (m_aOptions.eMethod == EMethod::eBackProj) return "back projection";
    std::string strText =
        Format("%s, %d iteration%s", m_aOptions.eMethod == EMethod::eSart ? "SART" : "EM",
               m_aOptions.iIterations, m_aOptions.iIterations == 1 ? "" : "s");
    if (m_aOptions.vuiSetSizes.size() > 1)
        strText += Format(", %zu subsets", m_aOptions.vuiSetSizes.size());
    if (m_iSmoothInterval > 0) strText += ", smoothed";
    return strText;
}

std::string CReconstructPlan::Describe(const ReconstructArgs& rArgs) const
{
    const auto [fLow, fHigh] = std::minmax_element(m_vfAngles.begin(), m_vfAngles.end());
    int iDevices = rArgs.aServer.iDevices;
    if (iDevices == 0) iDevices = static_cast<int>(std::thread::hardware_concurrency());
    return Format(
        "%s: %d x %d, %d of %d angles from %g to %g degrees -> volume %d x %d x %d, %s; "
        "the server needs %s of memory",
        rArgs.strTilts.c_str(), m_aSize.iProjX, m_aSize.iProjY, m_aSize.iProjs,
        m_aStack.GetHeader().iZ, double(*fLow), double(*fHigh), m_aSize.iVolX, m_aSize.iProjY,
        m_aSize.iVolZ, DescribeMethod().c_str(),
        FormatBytes(m_aSize.GetBytes(std::clamp(iDevices, 1, 16))).c_str());
}

bool CReconstructPlan::mFail(const std::string& strError)
{
    m_strError = strError;
    return false;
}

}  // namespace talven
