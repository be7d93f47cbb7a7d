// What a job is, as the oracle takes it, and what keeps it from being run or followed.

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "tests/model/Model.h"

namespace
{
constexpr float g_fMost = 1e6f;  // squares and ray sums stay far from the end of floats

bool AllFinite(const std::vector<float>& rValues)
{
    return std::ranges::all_of(rValues, [](float f) { return std::isfinite(f); });
}

bool AllWithin(std::span<const float> fValues, float fMost)
{
    return std::ranges::all_of(fValues, [=](float f) { return std::fabs(f) <= fMost; });
}

bool AllUsable(const OracleBox& rBox)
{
    constexpr float fMost = std::numeric_limits<float>::max() / 4;
    return AllWithin(rBox.afCentre, std::nextafter(fMost, 0.0f)) &&
           AllWithin(rBox.afHalf, std::nextafter(fMost, 0.0f));
}

bool IsPlain(const OracleBox& rBox)
{
    return AllWithin(rBox.afCentre, 100) && AllWithin(rBox.afHalf, 1e5f) &&
           rBox.afHalf[0] >= 0.5f && rBox.afHalf[1] >= 0.5f;
}

/// Neither too large nor lost where small numbers count as 0.
bool IsModest(float f)
{
    return f == 0 || (std::fabs(f) > 1e-20f && std::fabs(f) < g_fMost);
}
}  // namespace

bool ArePlain(std::span<const float> fPixels)
{
    return std::ranges::all_of(fPixels,
                               [](float f) { return IsModest(f) || (IsMissing(f) && f > -2e30f); });
}

std::uint32_t Model::FindObstacle(bool bReproject) const
{
    const auto IsOutside = [&](std::uint32_t n) { return n >= std::uint32_t(aStack.iN); };
    if (aStack.IsEmpty() || !AllFinite(vfAngles)) return Msg::eProjSize;
    if (aVolume.IsEmpty() || aStack.iY != aVolume.iY || aVolume.iN > 65535) return Msg::eVolSize;
    if (vuiList.empty() || vuiList.size() > 65535 || std::ranges::any_of(vuiList, IsOutside))
        return Msg::eSetOp;
    if (aBox && !AllUsable(*aBox)) return Msg::eWeightOpt;
    if (bReproject || eMethod == EMethod::eBackProj) return 0;
    const std::uint64_t ulSizes = std::accumulate(vuiSetSize.begin(), vuiSetSize.end(), 0ULL);
    if (uiIterations == 0 || uiSets == 0 || !AllFinite(vfRelax) || ulSizes > UINT32_MAX)
        return Msg::eReconOpt;
    if (uiInterval > 0 && !AllFinite(vfKernel)) return Msg::eSmoothOpt;
    return 0;
}

std::uint32_t Model::FindDoubt(bool bReproject) const
{
    const auto IsSteep = [](float fAngle) { return std::fabs(fAngle) > 85; };
    const bool bBox = aBox || bReproject || eMethod != EMethod::eBackProj;
    const float fHalf = aBox ? aBox->afHalf[0] : float(aVolume.iX) / 2;
    if (!bBoxKnown || (aBox && !IsPlain(*aBox))) return Msg::eWeightOpt;
    if (!ArePlain(aStack.vf) || !AllWithin(vfAngles, 180) ||
        !std::ranges::all_of(vfAngles, IsModest))
        return Msg::eProjSize;
    if (!std::ranges::all_of(aVolume.vf, IsModest) || aVolume.iN > 300) return Msg::eVolSize;
    // The depth of an endless slab along a ray that never leaves it is a matter of rounding.
    if (bBox && fHalf / float(aStack.iX) > 10 && std::ranges::any_of(vfAngles, IsSteep))
        return aBox ? Msg::eWeightOpt : Msg::eProjSize;
    if (bReproject || eMethod == EMethod::eBackProj) return 0;
    if (!AllWithin(vfRelax, 2) || !std::ranges::all_of(vfRelax, IsModest)) return Msg::eReconOpt;
    const float fSum = std::accumulate(vfKernel.begin(), vfKernel.end(), 0.0f,
                                       [](float f, float g) { return f + std::fabs(g); });
    const bool bPlain = fSum < 4 && std::ranges::all_of(vfKernel, IsModest);
    return uiInterval > 0 && !bPlain ? Msg::eSmoothOpt : 0;
}

double Model::GetWork() const
{
    const double dVoxels = double(aVolume.vf.size()), dRows = double(aStack.iX) * aStack.iY;
    const double dPass = (dVoxels + dRows * (aVolume.iX + aVolume.iN)) * double(vuiList.size());
    const double dKernel = uiInterval > 0 ? double(vfKernel.size()) : 0;
    return uiIterations * (dPass + dVoxels * dKernel / std::max(uiInterval, 1U)) +
           dVoxels * dKernel;
}

TestJob Model::MakeJob(bool bReproject) const
{
    TestJob aJob;
    aJob.bReproject = bReproject;
    aJob.eMethod = eMethod;
    aJob.iProjX = aStack.iX;
    aJob.iY = aStack.iY;
    aJob.iVolX = aVolume.iX;
    aJob.iVolZ = aVolume.iN;
    aJob.vfAngles = vfAngles;
    aJob.vuiList = vuiList;
    aJob.aBox = aBox;
    if (!aBox && (bReproject || eMethod != EMethod::eBackProj))  // the volume is the box
        aJob.aBox = {{0, 0}, {float(aVolume.iX) / 2, float(aVolume.iN) / 2}};
    if (bReproject || eMethod == EMethod::eBackProj) return aJob;
    aJob.iIterations = int(uiIterations);
    aJob.uiSets = uiSets;
    for (const std::uint32_t uiSize : vuiSetSize)  // what goes beyond the list is cut off
        aJob.vuiSetSize.push_back(std::min(uiSize, std::uint32_t(vuiList.size())));
    aJob.vfRelax = vfRelax;
    aJob.uiInterval = std::min(uiInterval, uiIterations + 1);
    aJob.aiKernel = aiKernel;
    aJob.vfKernel = vfKernel;
    return aJob;
}

TestData Model::MakeData() const
{
    TestData aData;
    aData.vfProjs = aStack.vf;
    aData.vfVolume = aVolume.vf;
    for (auto pRow = aStack.vf.begin(); pRow != aStack.vf.end(); pRow += aStack.iX)
    {
        const auto pFirst = std::find_if_not(pRow, pRow + aStack.iX, IsMissing);
        int iEnd = aStack.iX;
        while (iEnd > 0 && IsMissing(pRow[iEnd - 1])) --iEnd;
        aData.vuiRangeX.push_back(iEnd > 0 ? unsigned(pFirst - pRow) : unsigned(aStack.iX + 1));
        aData.vuiRangeX.push_back(unsigned(iEnd));
    }
    return aData;
}
