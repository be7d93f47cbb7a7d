#include "talven/Schedule.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "talven/Text.h"

namespace talven
{
namespace
{

/// 0 ... iCount - 1 in the order of their reversed bits: 0 4 2 6 1 5 3 7 for 8.
std::vector<int> BitReversedOrder(int iCount)
{
    int iBits = 0;
    while ((1LL << iBits) < iCount) ++iBits;
    std::vector<int> viOrder;
    for (long long i = 0; i < (1LL << iBits); ++i)
    {
        long long iReversed = 0;
        for (int b = 0; b < iBits; ++b)
            if ((i >> b) & 1) iReversed |= 1LL << (iBits - 1 - b);
        if (iReversed < iCount) viOrder.push_back(static_cast<int>(iReversed));
    }
    return viOrder;
}

}  // namespace

std::vector<std::uint32_t> DivideIntoSubsets(int iProjs, int iSets)
{
    std::vector<std::uint32_t> vuiSizes;
    vuiSizes.reserve(static_cast<std::size_t>(iSets));
    for (int i = 0; i < iSets; ++i)
        vuiSizes.push_back(static_cast<std::uint32_t>(iProjs / iSets + (i < iProjs % iSets)));
    return vuiSizes;
}

std::vector<std::uint32_t> InterleaveSubsets(std::span<const std::uint32_t> uiSelected,
                                             std::span<const float> fAngles,
                                             std::span<const std::uint32_t> uiSetSizes)
{
    std::vector<std::uint32_t> vuiSorted(uiSelected.begin(), uiSelected.end());
    std::stable_sort(vuiSorted.begin(), vuiSorted.end(),
                     [&fAngles](std::uint32_t a, std::uint32_t b)
                     { return fAngles[a] < fAngles[b]; });

    // Place k among neighbouring angles belongs to the subset that runs as number viOrder[k]; the
    // subset furthest behind its share of the angles passed so far gets the next one.
    const auto iSets = static_cast<int>(uiSetSizes.size());
    std::vector<int> viOrder(uiSetSizes.size());
    const std::vector<int> viReversed = BitReversedOrder(iSets);
    for (int i = 0; i < iSets; ++i) viOrder[static_cast<std::size_t>(viReversed[i])] = i;

    const double dTotal = std::max(1.0, std::accumulate(uiSetSizes.begin(), uiSetSizes.end(), 0.0));
    std::vector<std::vector<std::uint32_t>> avuiSets(uiSetSizes.size());
    std::vector<std::uint32_t> vuiRest;
    for (std::size_t i = 0; i < vuiSorted.size(); ++i)
    {
        int iBest = -1;
        double dMostBehind = 0;
        for (const int iSet : viOrder)
        {
            const auto tSet = static_cast<std::size_t>(iSet);
            if (avuiSets[tSet].size() >= uiSetSizes[tSet]) continue;
            const double dBehind =
                uiSetSizes[tSet] * (double(i) + 1) / dTotal - double(avuiSets[tSet].size());
            if (iBest < 0 || dBehind > dMostBehind + 1e-9)
            {
                iBest = iSet;
                dMostBehind = dBehind;
            }
        }
        (iBest < 0 ? vuiRest : avuiSets[static_cast<std::size_t>(iBest)]).push_back(vuiSorted[i]);
    }

    std::vector<std::uint32_t> vuiList;
    for (const auto& rSet : avuiSets) vuiList.insert(vuiList.end(), rSet.begin(), rSet.end());
    vuiList.insert(vuiList.end(), vuiRest.begin(), vuiRest.end());
    return vuiList;
}

bool MakeRelaxTable(const Relaxation& rRelax, int iIterations, std::size_t tSets,
                    std::vector<float>& rTable, std::string& rError)
{
    const std::vector<double>& rFactors = rRelax.vdFactors;
    const auto tIterations = static_cast<std::size_t>(iIterations);
    if (rFactors.size() != 1 && rFactors.size() != tIterations)
        return Fail(rError, Format("%zu relaxation factors for %d iterations", rFactors.size(),
                                   iIterations));
    rTable.clear();
    for (std::size_t i = 0; i < tIterations; ++i)
    {
        const double dFactor =
            rFactors.size() == 1 ? rFactors[0] * std::pow(rRelax.dDecay, double(i)) : rFactors[i];
        rTable.insert(rTable.end(), tSets, static_cast<float>(dFactor));
    }
    return true;
}

GaussianKernel MakeGaussianKernel(double dSigma)
{
    const int iHalf = static_cast<int>(std::ceil(3 * dSigma));
    GaussianKernel aKernel;
    aKernel.iSize = 2 * iHalf + 1;
    std::vector<double> vdLine;  // the kernel is the product of three of these
    double dSum = 0;
    for (int i = -iHalf; i <= iHalf; ++i)
    {
        vdLine.push_back(std::exp(-0.5 * i * i / (dSigma * dSigma)));
        dSum += vdLine.back();
    }
    for (double& rValue : vdLine) rValue /= dSum;
    aKernel.vfValues.reserve(vdLine.size() * vdLine.size() * vdLine.size());
    for (const double dZ : vdLine)
        for (const double dY : vdLine)
            for (const double dX : vdLine)
                aKernel.vfValues.push_back(static_cast<float>(dZ * dY * dX));
    return aKernel;
}

}  // namespace talven
