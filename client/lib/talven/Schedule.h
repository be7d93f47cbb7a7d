#pragma once

#include <cstdint>
#include <span>
#include <string>
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

/// Relaxation factors by iteration: one for all, one per iteration, or a first one and a decay,
/// each iteration's factor being dDecay times the one before.
struct Relaxation
{
    std::vector<double> vdFactors = {1.0};
    double dDecay = 1.0;  ///< of a single factor
};
/// The table [iteration][subset].
/// \return false when there is neither one factor nor one per iteration.
[[nodiscard]] bool MakeRelaxTable(const Relaxation& rRelax, int iIterations, std::size_t tSets,
                                  std::vector<float>& rTable, std::string& rError);

/// A Gaussian of standard deviation dSigma, voxels, in a cube of iSize along each axis: iSize is
/// 2 ceil(3 dSigma) + 1. Shape [z][y][x], its sum is 1.
struct GaussianKernel
{
    int iSize = 1;
    std::vector<float> vfValues;
};
/// \param dSigma  above 0
GaussianKernel MakeGaussianKernel(double dSigma);

}  // namespace talven
