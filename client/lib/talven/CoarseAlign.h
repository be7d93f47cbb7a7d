#pragma once

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "talven/ViewPlace.h"

namespace talven
{

/// Tilt series whose views are to be brought together.
struct CoarseRequest
{
    /// See AlignRequest; the same for all views.
    double dTiltAxis = 0;
    int iLimit = 20;                    ///< farthest that a view may have moved, pixels
    double dLow = 0.015, dHigh = 0.12;  ///< what is compared, cycles per pixel
    double dTaper = 0.15;               ///< of the edges of the images, share of their extent
    bool bStretch = true;               ///< views of a slab: see AlignCoarsely()
};

/// Where a view looks.
struct CoarseView
{
    ViewPlace aPlace = {};
    double dCorrelation = 1;  ///< with its neighbour; 1 for the first one
    bool bGood = true;        ///< false: it looks like nothing, and has the place of its neighbour
};

/// Aligns views coarsely: from the smallest tilt outwards each view is stretched across the tilt
/// axis by the ratio of the cosines and brought over its inner neighbour by cross-correlation
/// (Guckenberger 1982). A view whose correlation is far below that of the others is left out of the
/// chain, which goes on from the last good one. Where they are to be counted from: the first view.
/// \param fAngles  of all views, degrees, in any order
/// \param vfViews  [view][y][x]
/// \param rGoOn    called before each view with how many are done; false: stop
/// \return false when it was stopped
[[nodiscard]] bool AlignCoarsely(const CoarseRequest& rRequest, const ImageSize& rSize,
                                 std::span<const float> fAngles, std::span<const float> fViews,
                                 const std::function<bool(int iDone)>& rGoOn,
                                 std::vector<CoarseView>& rViews);

/// Whether the angles lie within those that stretching makes sense for; rError names one that
/// does not.
[[nodiscard]] bool CheckCoarseAngles(std::span<const float> fAngles, std::string& rError);

}  // namespace talven
