#pragma once

#include <span>

#include "Picture.h"
#include "talven/ViewQuality.h"

namespace talven
{

/// Draws the residual of every view over its angle. Suspect views are red, with their numbers; a
/// residual that would flatten all others is an arrow at the upper edge.
/// \param iNumbers  of the views, counted from 1
/// \param fAngles   degrees
CPicture DrawResiduals(std::span<const ViewQuality> aViews, std::span<const int> iNumbers,
                       std::span<const float> fAngles);

}  // namespace talven
