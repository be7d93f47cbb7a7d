#pragma once

#include <span>

#include "Picture.h"
#include "talven/SeriesAlign.h"

namespace talven
{

// Drawings of how a tilt series was aligned. Views that are left out are red, with their numbers.

/// Where the specimen's centre lies in the views, x and y over the angle; views that are left out
/// have no place, only an arrow at the lower edge.
/// \param fAngles   degrees
/// \param iNumbers  of the views, counted from 1
CPicture DrawPlaces(const SeriesAlignment& rAlignment, std::span<const float> fAngles,
                    std::span<const int> iNumbers);
/// How well each view agrees with a volume made without it. A view that is left out and would
/// flatten all others is an arrow at the lower edge.
CPicture DrawCorrelations(const SeriesAlignment& rAlignment, std::span<const float> fAngles,
                          std::span<const int> iNumbers);
/// By how much views and volume differ with each tilt axis that was tried, in units of the least
/// difference. \param rCurve  is not empty
CPicture DrawAxisCurve(const AxisCurve& rCurve);
/// How far the views moved in each round, but for those that tried a tilt axis.
CPicture DrawRounds(std::span<const AlignRound> aRounds);

}  // namespace talven
