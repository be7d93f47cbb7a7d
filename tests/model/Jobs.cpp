// What a job is, as the oracle takes it, and what keeps it from being run or followed.

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "tests/model/Model.h"

namespace
{
/// By the limit that the protocol states.
bool IsMissing(float fPixel)
{
    return double(fPixel) < -1e15;
}
}  // namespace

bool ArePlain(std::span<const float> fValues, float fMost, bool bPixels)
{
    const auto IsPlain = [=](float f)
    {
        return f == 0 || (std::fabs(f) > 1e-20f && std::fabs(f) <= fMost) ||
               (bPixels && IsMissing(f) && f > -2e30f);
    };
    return std::ranges::all_of(fValues, IsPlain);
}

std::uint32_t Model::FindObstacle(std::uint32_t uiType, bool bFollow) const
{
    if (uiType >= Msg::eTransform && aMeasured.IsEmpty()) return Msg::eMProjSize;
    if (uiType >= Msg::eTransform) return aStack.IsEmpty() ? Msg::eProjSize : 0;
    constexpr float fAny = std::numeric_limits<float>::max();
    const auto Are = [=](std::span<const float> fValues, float fMost, float fMostPlain)
    {
        const auto IsTaken = [=](float f) { return std::fabs(f) <= fMost; };
        return bFollow ? ArePlain(fValues, fMostPlain) : std::ranges::all_of(fValues, IsTaken);
    };
    const bool bPlainStack = !bFollow || ArePlain(aStack.vf, 1e6f, true);
    if (aStack.IsEmpty() || !Are(vfAngles, fAny, 180) || !bPlainStack) return Msg::eProjSize;
    // In wide volumes the positions of samples are rounded too much.
    const bool bPlainVolume = !bFollow || (ArePlain(aVolume.vf, 1e6f) && aVolume.iX < 1000);
    if (aVolume.IsEmpty() || aStack.iY != aVolume.iY || aVolume.iN > 65535 || !bPlainVolume)
        return Msg::eVolSize;
    const auto IsOutside = [&](std::uint32_t n) { return n >= std::uint32_t(aStack.iN); };
    if (vuiList.empty() || vuiList.size() > 65535 || std::ranges::any_of(vuiList, IsOutside))
        return Msg::eSetOp;
    if (aBox && (!Are(aBox->afCentre, fAny / 4, 100) || !Are(aBox->afHalf, fAny / 4, 1e5f)))
        return Msg::eWeightOpt;
    if (bFollow && (!bBoxKnown || (aBox && std::ranges::min(aBox->afHalf) < 0.5f)))
        return Msg::eWeightOpt;
    // The depth of an endless slab along a ray that never leaves it is a matter of rounding.
    const auto IsSteep = [](float fAngle) { return std::fabs(fAngle) > 85; };
    const float fHalf = aBox ? aBox->afHalf[0] : float(aVolume.iX) / 2;
    if (bFollow && fHalf / float(aStack.iX) > 10 && std::ranges::any_of(vfAngles, IsSteep))
        return aBox ? Msg::eWeightOpt : Msg::eProjSize;
    if (uiType == Msg::eReproject || eMethod == EMethod::eBackProj) return 0;
    const std::uint64_t ulSizes = std::accumulate(vuiSetSize.begin(), vuiSetSize.end(), 0ULL);
    if (uiIterations == 0 || uiSets == 0 || !Are(vfRelax, fAny, 2) || ulSizes >> 32 != 0)
        return Msg::eReconOpt;
    return uiInterval > 0 && !Are(aKernel.vf, fAny, 1) ? Msg::eSmoothOpt : 0;
}

bool Model::IsPlain(const OracleAlign& rAlign) const
{
    const auto& s = rAlign.afScale;
    // Without a floor, what s0 and s1 make of the pixels has to keep away from 0.
    const bool bFloor =
        s[3] >= 0.4f || (s[0] >= 0.4f && s[1] >= 0 && std::ranges::min(aMeasured.vf) >= 0.09f);
    const bool bLog = bFloor && s[3] <= 10 && s[5] >= 0.1f && s[5] <= 10;
    return ArePlain(rAlign.afMatrix, 10) && ArePlain(aMeasured.vf, 10) && s[2] > 1e-6f &&
           ArePlain({&s[0], 2}, 10) && ArePlain({&s[4], 1}, 10) && (bLog || !rAlign.bLog);
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
    aJob.iIterations = int(uiIterations);
    aJob.uiSets = uiSets;
    aJob.vuiSetSize = vuiSetSize;
    aJob.vfRelax = vfRelax;
    aJob.uiInterval = uiInterval;
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
