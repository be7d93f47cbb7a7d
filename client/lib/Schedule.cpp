#include "talven/Schedule.h"

#include <algorithm>
#include <numeric>

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

}  // namespace talven
