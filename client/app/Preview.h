#pragma once

#include <string>
#include <vector>

#include "Picture.h"
#include "talven/Slices.h"

namespace talven
{

/// Draws the central slices side by side, each with its name and place, in one grey scale from the
/// 0.5th to the 99.5th percentile of all three. Small volumes are enlarged by whole factors, large
/// ones reduced.
CPicture DrawPreview(const CSlices& rViews);
[[nodiscard]] bool WritePreview(const std::string& strPath, const CSlices& rViews,
                                std::string& rError);
/// The same slices, each a picture without a title.
std::vector<CPicture> DrawSlices(const CSlices& rViews);
/// "XY", "ZY" or "XZ".
const char* GetSliceName(const Slice& rSlice);

}  // namespace talven
