#pragma once

#include <array>
#include <vector>

#include "tests/soak/Model.h"

// Transforms and comparisons in double precision. Which pixels are missing is float arithmetic by
// definition.

/// A request to align, without the images' indices.
struct AlignJob
{
    std::array<float, 6> afMatrix;  ///< a b c d e f
    std::array<float, 6> afScale;   ///< s0 to s5
    bool bLog;
};

/// The measured image mapped to a projection of iX x iY pixels; a missing pixel is NaN.
std::vector<double> TransformImage(const AlignJob& rJob, const Images& rMeasured, int iMProj,
                                   int iX, int iY);

struct AlignSums
{
    std::array<double, 9> ad{};      ///< in the order of the reply: words 7 to 15
    std::array<double, 9> adSize{};  ///< sums of the absolute contributions
};
/// \param rTransed  what TransformImage gave for the projection
AlignSums SumImages(std::span<const float> fAligned, const std::vector<double>& rTransed);
