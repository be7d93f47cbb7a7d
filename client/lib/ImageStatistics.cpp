#include "talven/ImageStatistics.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <vector>

#include "talven/Alignment.h"

namespace talven
{
namespace
{

/// \param fValues  one at least
ImageStatistics MeasureValues(std::span<const float> fValues)
{
    constexpr std::size_t tLanes = 8;  // independent sums, so that they are vectorised
    std::array<float, tLanes> afMin, afMax;
    std::array<double, tLanes> adSum{}, adSquares{};
    afMin.fill(fValues[0]);
    afMax.fill(fValues[0]);
    const auto ForAll = [&fValues](auto Visit)
    {
        const std::size_t tWhole = fValues.size() / tLanes * tLanes;
        for (std::size_t i = 0; i < tWhole; i += tLanes)
            for (std::size_t l = 0; l < tLanes; ++l) Visit(l, fValues[i + l]);
        for (std::size_t i = tWhole; i < fValues.size(); ++i) Visit(0, fValues[i]);
    };
    ForAll(
        [&](std::size_t l, float fValue)
        {
            afMin[l] = fValue < afMin[l] ? fValue : afMin[l];
            afMax[l] = fValue > afMax[l] ? fValue : afMax[l];
            adSum[l] += fValue;
        });
    ImageStatistics aImage;
    aImage.tValues = fValues.size();
    aImage.fMin = *std::min_element(afMin.begin(), afMin.end());
    aImage.fMax = *std::max_element(afMax.begin(), afMax.end());
    double dSum = 0;
    for (const double dLane : adSum) dSum += dLane;
    const double dMean = dSum / static_cast<double>(fValues.size());
    ForAll([&](std::size_t l, float fValue)
           { adSquares[l] += (fValue - dMean) * (fValue - dMean); });
    aImage.dMean = dMean;
    for (const double dLane : adSquares) aImage.dSquares += dLane;
    return aImage;
}

}  // namespace

double ImageStatistics::GetSd() const
{
    return tValues == 0 ? 0 : std::sqrt(dSquares / static_cast<double>(tValues));
}

ImageStatistics MeasureImage(std::span<const float> fPixels)
{
    std::vector<float> vfValues;
    std::span<const float> fValues = fPixels;
    if (std::any_of(fPixels.begin(), fPixels.end(), IsMissing))
    {
        std::remove_copy_if(fPixels.begin(), fPixels.end(), std::back_inserter(vfValues),
                            IsMissing);
        fValues = vfValues;
    }
    ImageStatistics aImage;
    if (!fValues.empty()) aImage = MeasureValues(fValues);
    aImage.tMissing = fPixels.size() - fValues.size();
    return aImage;
}

}  // namespace talven
