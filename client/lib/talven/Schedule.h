#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace talven
{

/// Sizes of iSets subsets of iProjs projections: as equal as can be, larger ones first.
std::vector<std::uint32_t> DivideIntoSubsets(int iProjs, int iSets);

/// Reorders selected projections so that every subset spreads over the whole tilt range.
///
/// The server cuts subsets from consecutive positions of the list. Here the projections, sorted by
/// angle, are dealt out to the subsets in turn, and the subsets follow each other in bit-reversed
/// order, so that each differs from the ones before it as much as possible. Projections that no
/// subset has room for come last.
/// \param uiSelected  indices into fAngles
/// \param uiSetSizes  projections of each subset
std::vector<std::uint32_t> InterleaveSubsets(std::span<const std::uint32_t> uiSelected,
                                             std::span<const float> fAngles,
                                             std::span<const std::uint32_t> uiSetSizes);

}  // namespace talven
