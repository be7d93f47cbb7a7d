// What a job is, as the oracle takes it, and what keeps it from being run or followed.

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "tests/model/Model.h"

bool ArePlain(std::span<const float> fValues, float fMost)
{
    return std::ranges::all_of(
        fValues,
        [=](float f) { return f == 0 || (std::fabs(f) > 1e-20f && std::fabs(f) <= fMost); });
}

bool ArePixelsPlain(std::span<const float> fPixels)
{
    return std::ranges::all_of(fPixels,
                               [](float f) {
                                   return ArePlain({&f, 1}, 1e6f) || (IsMissing(f) && f > -2e30f);
                               });
}

std::uint32_t Model::FindObstacle(bool bReproject) const
{
    const auto IsBad = [](float f) { return !std::isfinite(f); };
    const auto IsHuge = [](float f)
    { return !(std::fabs(f) < std::numeric_limits<float>::max() / 4); };
    const auto IsOutside = [&](std::uint32_t n) { return n >= std::uint32_t(aStack.iN); };
    if (aStack.IsEmpty() || std::ranges::any_of(vfAngles, IsBad)) return Msg::eProjSize;
    if (aVolume.IsEmpty() || aStack.iY != aVolume.iY || aVolume.iN > 65535) return Msg::eVolSize;
    if (vuiList.empty() || vuiList.size() > 65535 || std::ranges::any_of(vuiList, IsOutside))
        return Msg::eSetOp;
    if (aBox &&
        (std::ranges::any_of(aBox->afCentre, IsHuge) || std::ranges::any_of(aBox->afHalf, IsHuge)))
        return Msg::eWeightOpt;
    if (bReproject || eMethod == EMethod::eBackProj) return 0;
    const std::uint64_t ulSizes = std::accumulate(vuiSetSize.begin(), vuiSetSize.end(), 0ULL);
    if (uiIterations == 0 || uiSets == 0 || std::ranges::any_of(vfRelax, IsBad) ||
        ulSizes >> 32 != 0)
        return Msg::eReconOpt;
    return uiInterval > 0 && std::ranges::any_of(aKernel.vf, IsBad) ? Msg::eSmoothOpt : 0;
}

std::uint32_t Model::FindDoubt(bool bReproject) const
{
    const auto IsSteep = [](float fAngle) { return std::fabs(fAngle) > 85; };
    const bool bPlain = bReproject || eMethod == EMethod::eBackProj;
    const float fHalf = aBox ? aBox->afHalf[0] : bPlain && !bReproject ? 0 : float(aVolume.iX) / 2;
    if (!bBoxKnown || (aBox && !(ArePlain(aBox->afCentre, 100) && ArePlain(aBox->afHalf, 1e5f) &&
                                 std::ranges::min(aBox->afHalf) >= 0.5f)))
        return Msg::eWeightOpt;
    if (!ArePixelsPlain(aStack.vf) || !ArePlain(vfAngles, 180)) return Msg::eProjSize;
    if (!ArePlain(aVolume.vf, 1e6f)) return Msg::eVolSize;
    // The depth of an endless slab along a ray that never leaves it is a matter of rounding.
    if (fHalf / float(aStack.iX) > 10 && std::ranges::any_of(vfAngles, IsSteep))
        return aBox ? Msg::eWeightOpt : Msg::eProjSize;
    if (bPlain) return 0;
    if (!ArePlain(vfRelax, 2)) return Msg::eReconOpt;
    return uiInterval > 0 && !ArePlain(aKernel.vf, 1) ? Msg::eSmoothOpt : 0;
}

double Model::GetWork() const
{
    const double dVoxels = double(aVolume.vf.size()), dRows = double(aStack.iX) * aStack.iY;
    const double dPass = (dVoxels + dRows * (aVolume.iX + aVolume.iN)) * double(vuiList.size());
    const double dKernel = uiInterval > 0 ? double(aKernel.vf.size()) : 0;
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
    aJob.aiKernel = {aKernel.iX, aKernel.iY, aKernel.iN};
    aJob.vfKernel = aKernel.vf;
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

std::optional<OracleAlign> ReadAlign(const Request& r)
{
    OracleAlign aAlign = {};
    aAlign.bLog = r.uiType == Msg::eTransforml || r.uiType == Msg::eComparel;
    const std::size_t tFirst = r.uiType >= Msg::eCompare ? 8 : 6, tValues = aAlign.bLog ? 12 : 9;
    if (tFirst + tValues > 16 + r.vuiData.size()) return std::nullopt;
    for (std::size_t k = 0, n = tFirst; k < tValues; ++k, ++n)
    {
        const float fValue = n < 16 ? r.FieldF(n) : std::bit_cast<float>(r.vuiData[n - 16]);
        (k < 6 ? aAlign.afMatrix[k] : aAlign.afScale[k - 6]) = fValue;
    }
    return aAlign;
}
