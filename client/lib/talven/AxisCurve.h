#pragma once

#include <vector>

namespace talven
{

/// How well views and volume agree with the tilt axis in several directions.
struct AxisCurve
{
    std::vector<double> vdAngles = {}, vdScores = {};  ///< degrees, mean correlation
    double dBest = 0;         ///< where a parabola through the points about the best one peaks
    double dUncertainty = 0;  ///< of it, degrees: standard deviation by the points' distances
    bool bFlat = true;        ///< it does not tell the axis: the best is no peak, or is anywhere

    void Add(double dAngle, double dScore);
    bool Has(double dAngle) const;
    double GetBestAngle() const;  ///< of the points
    /// Whether the best point is the first or the last one.
    bool IsBestAtEdge() const;
    /// \param dReach  degrees from the best point: those within count
    void Fit(double dReach);
};

}  // namespace talven
