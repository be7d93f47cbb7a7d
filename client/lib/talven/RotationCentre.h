#pragma once

#include <span>
#include <string>

#include "talven/Alignment.h"
#include "talven/ServerJob.h"

namespace talven
{

/// Where the rotation axis lies in the views of a scan.
struct RotationCentre
{
    double dColumn = 0;       ///< pixels from 0, a fraction
    double dCorrelation = 0;  ///< of the views half a turn apart, -1 to 1
    int iViews[2] = {};       ///< the views that were compared, the first pair of them
};

/// Finds the column of the rotation axis: half a turn on, a view is its own mirror image about the
/// axis.
///
/// The gradients along X of a view and of the mirrored other one are correlated at all shifts that
/// leave a third of the columns in common, so that the axis is found in the middle two thirds. The
/// views may be as far from half a turn apart as a view is from the next: the curve over the shifts
/// is compared with that of views beside each other, in which things move by as much. A parabola
/// gives the fraction; of several pairs the median counts.
/// \param fAngles  of the views, degrees
/// \param rViews   flat beams make no edges: views should be corrected; image i belongs to angle i
/// \return false when a view cannot be read, when no two views are within one angular step of half
///         a turn, or when those do not agree; rError says which
[[nodiscard]] bool FindRotationCentre(const ImageSize& rSize, std::span<const float> fAngles,
                                      const ImageSource& rViews, RotationCentre& rCentre,
                                      std::string& rError);

}  // namespace talven
