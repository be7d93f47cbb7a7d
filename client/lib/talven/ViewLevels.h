#pragma once

#include <span>
#include <vector>

#include "talven/Alignment.h"

namespace talven
{

/// What to add to views to make them fit for a volume that holds only what is brighter than its
/// surroundings.
///
/// A slab's views lose one level, that of the course of their edges where the slab would have no
/// thickness, and get the projection of a uniform layer: SART keeps volumes from falling below 0;
/// with the layer nothing that is dark gets lost, and the views still belong to one volume. Those
/// of an isolated specimen lose the level of their own edges each. \param fAngles  degrees, of all
/// views \param fViews   [view][y][x]
std::vector<double> FindLevels(const ImageSize& rSize, std::span<const float> fAngles, bool bSlab,
                               std::span<const float> fViews, bool& rBeyond);

}  // namespace talven
