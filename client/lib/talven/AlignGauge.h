#pragma once

#include <span>
#include <vector>

namespace talven
{

/// Takes off shifts what no view can tell, because the specimen may lie anywhere: the part
/// X cos(angle) + Z sin(angle) of those across the tilt axis, and the mean of those along it.
/// \param fAngles  degrees, of all views
/// \param iUsed    the views that count; the others lose the same part
void RemoveGauge(std::span<const float> fAngles, std::span<const int> iUsed,
                 std::span<double> dAcross, std::span<double> dAlong);

}  // namespace talven
