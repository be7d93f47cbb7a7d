#pragma once

#include <algorithm>
#include <numeric>
#include <span>
#include <vector>

#include "talven/ImageMatch.h"

namespace talven
{

/// Small sums over the views of a series.

inline double GetMedian(std::vector<double> vdValues)
{
    if (vdValues.empty()) return 0;
    const auto pMiddle = vdValues.begin() + std::ptrdiff_t(vdValues.size() / 2);
    std::ranges::nth_element(vdValues, pMiddle);
    return *pMiddle;
}

inline double GetMean(std::span<const double> dValues)
{
    return std::accumulate(dValues.begin(), dValues.end(), 0.0) / double(dValues.size());
}

inline std::vector<int> CountTo(std::size_t tCount)
{
    std::vector<int> viAll(tCount);
    std::iota(viAll.begin(), viAll.end(), 0);
    return viAll;
}

inline bool Has(std::span<const int> iAscending, int i)
{
    return std::ranges::binary_search(iAscending, i);
}

/// A field of the matches of some views.
inline std::vector<double> Pick(std::span<const ImageMatch> aMatches, std::span<const int> iViews,
                                double ImageMatch::*pField)
{
    std::vector<double> vdPicked;
    for (const int i : iViews) vdPicked.push_back(aMatches[std::size_t(i)].*pField);
    return vdPicked;
}

}  // namespace talven
