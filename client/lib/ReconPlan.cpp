#include "talven/ReconPlan.h"

#include <algorithm>
#include <numeric>

#include "talven/Angles.h"
#include "talven/Text.h"
#include "talven/VolumeTilt.h"

namespace talven
{
namespace
{

bool ChooseViews(const ReconRequest& rRequest, std::span<const float> fAngles, ReconPlan& rPlan,
                 std::string& rError)
{
    const auto iViews = static_cast<int>(fAngles.size());
    const bool bInclude = !rRequest.viInclude.empty();
    const std::vector<int>& rListed = bInclude ? rRequest.viInclude : rRequest.viExclude;
    const std::string strPart = bInclude ? "include: " : "exclude: ";
    if (!rListed.empty() && rListed.back() >= iViews)
        return Fail(rError, strPart + Format("view %d, but the stack has %d sections",
                                             rListed.back() + 1, iViews));
    rPlan.viViews = SelectViews(rRequest, iViews);
    for (const int i : rPlan.viViews)
        rPlan.vfAngles.push_back(
            static_cast<float>(double(fAngles[std::size_t(i)]) + rRequest.dAngleOffset));
    return !rPlan.viViews.empty() || Fail(rError, strPart + "no view is left");
}

/// The maps of the views that take part.
bool ChooseAlignment(const ReconRequest& rRequest, const ImageSize& rRaw, std::size_t tViews,
                     ReconPlan& rPlan, std::string& rError)
{
    AlignRequest aRequest = rRequest.aAlign;
    if (!aRequest.aMaps.empty() && aRequest.aMaps.size() != tViews)
        return Fail(rError, Format("xf: %zu maps, but the stack has %zu sections",
                                   aRequest.aMaps.size(), tViews));
    for (std::size_t i = 0; !aRequest.aMaps.empty() && i < rPlan.viViews.size(); ++i)
        aRequest.aMaps[i] = aRequest.aMaps[std::size_t(rPlan.viViews[i])];
    if (!aRequest.aMaps.empty()) aRequest.aMaps.resize(rPlan.viViews.size());
    return MakeViewAlignment(aRequest, rRaw, rPlan.vfAngles, rPlan.aAlignment, rError);
}

bool ChooseSubsets(const ReconRequest& rRequest, ReconPlan& rPlan, std::string& rError)
{
    const auto iProjs = static_cast<int>(rPlan.viViews.size());
    const std::vector<std::uint32_t>& rAsked = rRequest.vuiSubsetSizes;
    if (rAsked.empty())
    {
        if (rRequest.iSubsets > iProjs)
            return Fail(rError,
                        Format("subsets: %d subsets of %d projections", rRequest.iSubsets, iProjs));
        // Six projections still spread over the tilt range, and noise averages out among them.
        rPlan.aOptions.vuiSetSizes = DivideIntoSubsets(
            iProjs, rRequest.iSubsets > 0 ? rRequest.iSubsets : std::max(1, (iProjs + 3) / 6));
        return true;
    }
    rPlan.aOptions.vuiSetSizes = rAsked;
    const auto ulSum = std::accumulate(rAsked.begin(), rAsked.end(), std::uint64_t(0));
    if (ulSum == rPlan.viViews.size()) return true;
    return Fail(rError, "subset-sizes: they add up to " + std::to_string(ulSum) + ", but " +
                            std::to_string(iProjs) + " projections take part");
}

bool ChooseMethod(const ReconRequest& rRequest, ReconPlan& rPlan, std::string& rError)
{
    rPlan.vuiOrder.resize(rPlan.viViews.size());
    std::iota(rPlan.vuiOrder.begin(), rPlan.vuiOrder.end(), 0u);
    ReconOptions& rOptions = rPlan.aOptions;
    rOptions.eMethod = rRequest.eMethod;
    if (rRequest.bFilter) rPlan.aFilter = rRequest.aFilter;
    rPlan.bUnconstrained = rRequest.bUnconstrained;
    if (rPlan.bUnconstrained && rOptions.eMethod != EMethod::eSart)
        return Fail(rError, "unconstrained: only SART, and wbp is so without it");
    if (rOptions.eMethod == EMethod::eBackProj) return true;

    if (!ChooseSubsets(rRequest, rPlan, rError)) return false;
    rOptions.iIterations = rRequest.iIterations;
    const std::vector<std::uint32_t>& rSizes = rOptions.vuiSetSizes;
    std::string strError;
    if (!MakeRelaxTable(rRequest.aRelax, rOptions.iIterations, rSizes.size(), rOptions.vfRelax,
                        strError))
        return Fail(rError, "relaxation: " + strError);
    if (rRequest.bInterleave && rSizes.size() > 1)
        rPlan.vuiOrder = InterleaveSubsets(std::vector(rPlan.vuiOrder), rPlan.vfAngles, rSizes);
    return true;
}

bool ChooseSmoothing(const ReconRequest& rRequest, ReconPlan& rPlan, std::string& rError)
{
    if (rRequest.dSmoothSigma <= 0) return true;
    if (rRequest.eMethod == EMethod::eBackProj)
        return Fail(rError, "smooth: back projection has no iterations to smooth between");
    // A server does not run iterations past the last whole interval.
    if (rRequest.iIterations % rRequest.iSmoothInterval != 0)
        return Fail(rError, Format("smooth: %d iterations are no whole number of intervals of %d",
                                   rRequest.iIterations, rRequest.iSmoothInterval));
    rPlan.iSmoothInterval = rRequest.iSmoothInterval;
    rPlan.aSmoothKernel = MakeGaussianKernel(rRequest.dSmoothSigma);
    return true;
}

/// Where a run of SART may end or be looked at.
bool ChooseStops(const ReconRequest& rRequest, ReconPlan& rPlan, std::string& rError)
{
    rPlan.dStopGain = rRequest.dStopGain;
    rPlan.iCheckpoint = rRequest.iCheckpoint;
    if (rRequest.eMethod != EMethod::eSart && (rPlan.dStopGain > 0 || rPlan.iCheckpoint > 0))
        return Fail(rError, std::string(rPlan.dStopGain > 0 ? "stop-when" : "checkpoint") +
                                ": only SART can be cut between iterations");
    if (rPlan.iSmoothInterval == 0 || rPlan.iCheckpoint % rPlan.iSmoothInterval == 0) return true;
    return Fail(rError, Format("checkpoint: %d iterations are no whole number of intervals of %d",
                               rPlan.iCheckpoint, rPlan.iSmoothInterval));
}

bool ChooseBox(const ReconRequest& rRequest, ReconPlan& rPlan, std::string& rError)
{
    rPlan.aBox = rRequest.aBox;
    if (rPlan.aBox && rPlan.bUnconstrained)
        return Fail(rError, "weight-box: not with --unconstrained");
    if (rPlan.aBox && rPlan.aFilter)
        return Fail(rError, "weight-box: a filtered back projection has no use for it");
    if (!rPlan.aBox || (rPlan.aBox->fHalfX > 0 && rPlan.aBox->fHalfZ > 0)) return true;
    return Fail(rError, "weight-box: the half sizes must be above 0");
}

/// Rows depend on each other by smoothing alone: by half a kernel, each time.
bool ChooseRows(const ReconRequest& rRequest, ReconPlan& rPlan, std::string& rError)
{
    rPlan.iAllRows = rPlan.aAlignment.aAligned.iY;
    rPlan.aRows = rPlan.aSent = {0, rPlan.iAllRows};
    if (!rRequest.aRows)
        return rRequest.iHalo < 0 || Fail(rError, "halo: is for some rows, see rows");
    const RowRange& rRows = *rRequest.aRows;
    if (rRows.iFirst < 0 || rRows.iEnd <= rRows.iFirst || rRows.iEnd > rPlan.iAllRows)
        return Fail(rError, Format("rows: %d:%d, but the views have rows 0:%d", rRows.iFirst,
                                   rRows.iEnd, rPlan.iAllRows));
    if (rRequest.aAlign.dTiltX != 0)
        return Fail(rError, "rows: not with x-tilt, which mixes all of them");
    std::int64_t lHalo = rRequest.iHalo;
    if (lHalo < 0 && rPlan.iSmoothInterval > 0)
        lHalo = std::int64_t(rPlan.aSmoothKernel.iSize / 2) *
                (rRequest.iIterations / rPlan.iSmoothInterval);
    const int iHalo = static_cast<int>(std::clamp<std::int64_t>(lHalo, 0, rPlan.iAllRows));
    rPlan.aRows = rRows;
    rPlan.aSent = {std::max(0, rRows.iFirst - iHalo), std::min(rPlan.iAllRows, rRows.iEnd + iHalo)};
    return true;
}

}  // namespace

std::vector<int> SelectViews(const ReconRequest& rRequest, int iViews)
{
    const bool bInclude = !rRequest.viInclude.empty();
    const std::vector<int>& rListed = bInclude ? rRequest.viInclude : rRequest.viExclude;
    std::vector<int> viViews;
    for (int i = 0; i < iViews; ++i)
        if (std::binary_search(rListed.begin(), rListed.end(), i) == bInclude) viViews.push_back(i);
    return viViews;
}

void LeaveOut(const std::vector<int>& rViews, int iViews, ReconRequest& rRequest)
{
    if (rViews.empty()) return;
    const std::vector<int> viTaken = SelectViews(rRequest, iViews);
    rRequest.viInclude.clear();
    rRequest.viExclude.clear();
    for (int i = 0; i < iViews; ++i)
        if (std::ranges::binary_search(rViews, i) || !std::ranges::binary_search(viTaken, i))
            rRequest.viExclude.push_back(i);
}

bool MakeReconPlan(const ReconRequest& rRequest, const ImageSize& rRaw,
                   std::span<const float> fAngles, ReconPlan& rPlan, std::string& rError)
{
    rPlan = ReconPlan{};
    if (!CheckDegrees(fAngles, rError)) return Fail(rError, "angles: " + rError);
    if (!ChooseViews(rRequest, fAngles, rPlan, rError) ||
        !ChooseAlignment(rRequest, rRaw, fAngles.size(), rPlan, rError) ||
        !ChooseMethod(rRequest, rPlan, rError) || !ChooseSmoothing(rRequest, rPlan, rError) ||
        !ChooseStops(rRequest, rPlan, rError) || !ChooseBox(rRequest, rPlan, rError) ||
        !ChooseRows(rRequest, rPlan, rError))
        return false;
    const ImageSize& rAligned = rPlan.aAlignment.aAligned;
    rPlan.aSize = {rAligned.iX,
                   rPlan.aSent.GetCount(),
                   static_cast<int>(rPlan.viViews.size()),
                   rRequest.iWidth > 0 ? rRequest.iWidth : rAligned.iX,
                   CVolumeTilt::GetSlices(rRequest.iThickness, rRequest.aAlign.dTiltX),
                   rPlan.iSmoothInterval > 0};
    rPlan.iThickness = rRequest.iThickness;
    rPlan.dTiltX = rRequest.aAlign.dTiltX;
    if (!rPlan.aAlignment.IsNone()) rPlan.aSize.aMeasured = rPlan.aAlignment.aBinned;
    return true;
}

bool MakeHalfPlan(const ReconRequest& rRequest, const ReconPlan& rPlan, int iHalf, int iIterations,
                  ReconPlan& rHalf, std::string& rError)
{
    if (rPlan.viViews.size() < 2) return Fail(rError, "halves: one view cannot be divided");
    if (!rRequest.vuiSubsetSizes.empty())
        return Fail(rError, "halves: give --subsets, not sizes that add up to all views");
    std::vector<std::uint32_t> vuiByAngle(rPlan.viViews.size()), vuiTaken;
    std::iota(vuiByAngle.begin(), vuiByAngle.end(), 0u);
    std::stable_sort(vuiByAngle.begin(), vuiByAngle.end(),
                     [&rPlan](std::uint32_t a, std::uint32_t b)
                     { return rPlan.vfAngles[a] < rPlan.vfAngles[b]; });
    for (auto i = std::size_t(iHalf); i < vuiByAngle.size(); i += 2)
        vuiTaken.push_back(vuiByAngle[i]);
    std::sort(vuiTaken.begin(), vuiTaken.end());

    rHalf = rPlan;
    rHalf.viViews.clear();
    rHalf.vfAngles.clear();
    for (const std::uint32_t n : vuiTaken)
    {
        rHalf.viViews.push_back(rPlan.viViews[n]);
        rHalf.vfAngles.push_back(rPlan.vfAngles[n]);
    }
    rHalf.dStopGain = rHalf.iCheckpoint = 0;
    ReconRequest aRequest = rRequest;
    aRequest.iSubsets = std::min((rRequest.iSubsets + 1) / 2, static_cast<int>(vuiTaken.size()));
    if (!ChooseMethod(aRequest, rHalf, rError)) return false;
    if (iIterations > 0) rHalf.aOptions = rHalf.GetIterations(0, iIterations);
    for (std::uint32_t& rn : rHalf.vuiOrder) rn = vuiTaken[rn];
    return true;
}

JobSize ReconPlan::GetResultSize() const
{
    JobSize aResult = aSize;
    aResult.iVolZ = iThickness;
    aResult.iProjY = aRows.GetCount();
    return aResult;
}

int ReconPlan::GetHalo() const
{
    return std::max(aRows.iFirst - aSent.iFirst, aSent.iEnd - aRows.iEnd);
}

ReconOptions ReconPlan::GetIterations(int iFirst, int iCount) const
{
    ReconOptions aSome = aOptions;
    const std::size_t tSets = aSome.vuiSetSizes.size();
    const auto pFirst = aOptions.vfRelax.begin() + std::ptrdiff_t(tSets * std::size_t(iFirst));
    aSome.vfRelax.assign(pFirst, pFirst + std::ptrdiff_t(tSets * std::size_t(iCount)));
    aSome.iIterations = iCount;
    return aSome;
}

std::string ReconPlan::DescribeMethod(int iIterations) const
{
    if (aFilter) return "filtered back projection";
    if (aOptions.eMethod == EMethod::eBackProj) return "back projection";
    std::string strText =
        Format("%s, %d iteration%s", aOptions.eMethod == EMethod::eSart ? "SART" : "EM",
               iIterations > 0 ? iIterations : aOptions.iIterations,
               (iIterations > 0 ? iIterations : aOptions.iIterations) == 1 ? "" : "s");
    if (aOptions.vuiSetSizes.size() > 1)
        strText += Format(", %zu subsets", aOptions.vuiSetSizes.size());
    if (bUnconstrained) strText += ", unconstrained";
    if (iSmoothInterval > 0) strText += ", smoothed";
    return strText;
}

}  // namespace talven
