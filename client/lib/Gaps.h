#pragma once

#include <span>

namespace talven
{

/// Puts a straight line between the neighbours of missing pixels, the nearest pixel at the ends.
/// \return false when all are missing
bool FillGaps(std::span<float> fRow);

}  // namespace talven
