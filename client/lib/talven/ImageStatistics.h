#pragma once

#include <cstddef>
#include <span>

namespace talven
{

/// The values of an image; missing pixels are none.
struct ImageStatistics
{
    std::size_t tValues = 0, tMissing = 0;  ///< pixels
    float fMin = 0, fMax = 0;
    double dMean = 0;
    double dSquares = 0;  ///< sum of the squared differences from the mean

    /// Standard deviation; 0 for no values.
    double GetSd() const;
};

/// In two passes over the image, so that no large mean hides the deviations.
ImageStatistics MeasureImage(std::span<const float> fPixels);

}  // namespace talven
