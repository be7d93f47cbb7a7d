#pragma once

#include <vector>

#include "talven/ViewAlignment.h"

namespace talven
{

/// Where the specimen's centre lies in a view, pixels right of and above the view's centre.
struct ViewPlace
{
    double dX = 0, dY = 0;
};

/// How the views of a series lie.
struct ViewPlaces
{
    double dTiltAxis = 0;  ///< see AlignRequest
    std::vector<ViewPlace> aViews = {};

    /// The maps that turn the tilt axis to +Y and bring the specimen's centre to the centre of the
    /// image.
    std::vector<ViewMap> MakeMaps() const;
    /// Moves a view's place by so much along the axes of the aligned view.
    void Move(std::size_t tView, double dAcross, double dAlong);
};

/// The places in views that are means of iBin x iBin pixels, from those in the raw views, and back.
/// Blocks leave over some pixels at the right and at the top, so that the middle is another.
ViewPlaces ToBinned(const ViewPlaces& rPlaces, const ImageSize& rRaw, int iBin);
ViewPlaces ToRaw(const ViewPlaces& rPlaces, const ImageSize& rRaw, int iBin);

}  // namespace talven
