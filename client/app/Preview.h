#pragma once

#include <string>

#include "talven/Slices.h"

namespace talven
{

/// Draws the central slices side by side, each with its name and place, in one grey scale from the
/// 0.5th to the 99.5th percentile of all three. Small volumes are enlarged by whole factors, large
/// ones reduced.
[[nodiscard]] bool WritePreview(const std::string& strPath, const CSlices& rViews,
                                std::string& rError);

}  // namespace talven
