#pragma once

#include <limits>
#include <span>
#include <vector>

#include "talven/ImageStatistics.h"
#include "talven/ServerJob.h"

namespace talven
{

/// What is wrong with the pixels of a view.
enum class EViewFault
{
    eNone,
    eBlank,  ///< it holds nothing, or hardly any contrast
    eDark,   ///< its mean lies far below the course of the others
    eBright  ///< far above
};

/// What tells a bad view of a tilt series.
struct ViewQuality
{
    ImageStatistics aPixels;
    EViewFault eFault = EViewFault::eNone;
    /// Its R-factor after the last iteration, and what those of its neighbours by angle tell about
    /// it; NaN: not known.
    double dResidual = std::numeric_limits<double>::quiet_NaN();
    double dExpected = std::numeric_limits<double>::quiet_NaN();
    double dScore = 0;  ///< of the residual among those of all views, see ScoreViews()

    bool StandsOut() const;  ///< the residual does
    bool IsSuspect() const { return eFault != EViewFault::eNone || StandsOut(); }
};

/// The images of a source, measured as they pass by.
/// \param rPixels  receives the statistics of image i as element i; borrowed, grows as it must
ImageSource Measure(ImageSource Source, std::vector<ImageStatistics>& rPixels);

/// The course of a value of all views: level + slope / cos(angle), as thickness goes in a slab,
/// level beyond 70.5 degrees where the field of view ends it.
struct ViewCourse
{
    double dLevel = 0, dSlope = 0;
};

/// The course that most of the values follow; its slope is a median: Theil's incomplete method
/// (Proc. Kon. Ned. Akad. Wetensch. A 53, 1950).
/// \param dValues  one of each view; those that are not finite do not count
/// \param fAngles  degrees, as many
/// \return false for fewer than six values
[[nodiscard]] bool FindCourse(std::span<const double> dValues, std::span<const float> fAngles,
                              ViewCourse& rCourse);

/// How far each value lies above (+) or below (-) the course of all, in robust standard deviations:
/// 1.4826 times the median of the absolute differences, which a quarter of bad views does not
/// spoil.
/// \param dValues  one of each view; those that are not finite do not count and get 0
/// \param fAngles  degrees, as many
/// \return -999 to 999; zeros for fewer than six values
std::vector<double> ScoreViews(std::span<const double> dValues, std::span<const float> fAngles);

/// Blank is a view without values or with less than a tenth of the median standard deviation. Dark
/// and bright ones have a mean more than six robust standard deviations off the course, and by more
/// than a fifth of the median mean and a tenth of the median contrast. A residual stands out when
/// it lies more than four robust standard deviations above the course and is more than a third
/// larger than what a line through the logarithms of its six neighbours by angle tells.
/// \param aPixels     of each view
/// \param dResiduals  of each view; empty: there are none
/// \param fAngles     degrees, of each view
std::vector<ViewQuality> JudgeViews(std::span<const ImageStatistics> aPixels,
                                    std::span<const double> dResiduals,
                                    std::span<const float> fAngles);

}  // namespace talven
