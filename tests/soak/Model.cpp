#include "tests/soak/Model.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace
{
bool AllFinite(const std::vector<float>& rValues)
{
    return std::ranges::all_of(rValues, [](float f) { return std::isfinite(f); });
}

bool IsUsable(const OracleBox& rBox)
{
    constexpr float fMost = std::numeric_limits<float>::max() / 4;
    return std::ranges::all_of(rBox.afCentre, [](float f) { return std::fabs(f) < fMost; }) &&
           std::ranges::all_of(rBox.afHalf, [](float f) { return std::fabs(f) < fMost; });
}
}  // namespace

bool Model::CanRun(bool bReproject) const
{
    if (aStack.IsEmpty() || aVolume.IsEmpty() || aStack.iY != aVolume.iY) return false;
    const auto IsOutside = [&](std::uint32_t n) { return n >= std::uint32_t(aStack.iN); };
    if (vuiList.empty() || std::ranges::any_of(vuiList, IsOutside)) return false;
    if (!AllFinite(vfAngles) || (aBox && !IsUsable(*aBox))) return false;
    if (bReproject || eMethod == EMethod::eBackProj) return true;
    if (uiIterations == 0 || uiSets == 0 || !AllFinite(vfRelax)) return false;
    if (uiInterval == 0 || vfKernel.empty()) return true;
    return AllFinite(vfKernel) && std::ranges::any_of(vfKernel, [](float f) { return f != 0; });
}

bool Model::HasSlab() const
{
    const float fHalf = aBox ? aBox->afHalf[0] : float(aVolume.iX) / 2;
    return fHalf / float(aStack.iX) > 10;
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
    if (aBox) aJob.aBox = *aBox;
    if (!aBox && (bReproject || eMethod != EMethod::eBackProj))  // the volume is the box
        aJob.aBox = OracleBox{{0, 0}, {float(aVolume.iX) / 2, float(aVolume.iN) / 2}};
    if (bReproject || eMethod == EMethod::eBackProj) return aJob;
    aJob.iIterations = int(uiIterations);
    aJob.uiSets = uiSets;
    aJob.vuiSetSize = vuiSetSize;
    aJob.vfRelax = vfRelax;
    aJob.uiInterval = uiInterval;
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
