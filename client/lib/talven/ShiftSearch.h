#pragma once

#include <functional>
#include <map>
#include <utility>
#include <vector>

#include "talven/Alignment.h"

namespace talven
{

/// The shift at which two images agree best.
struct ShiftMatch
{
    double dX = 0, dY = 0;    ///< pixels
    double dCorrelation = 0;  ///< normalised, there
    CompareSums aSums;        ///< there
    bool bAtEdge = false;     ///< of the range: the best may lie beyond it
};

/// Looks for the shift with the highest normalised cross-correlation, coarse to fine.
///
/// The range is scanned in steps of 1, 2 or 4 pixels (up to 4, up to 16, beyond); from the best few
/// of these it climbs in ever smaller steps to a whole pixel, and a parabola along each axis gives
/// the fraction.
class CShiftSearch
{
public:
    /// Compares at a shift; false ends the search.
    using Probe = std::function<bool(double dX, double dY, CompareSums& rSums)>;

    /// \param iRange       pixels, along X and Y, in both directions
    /// \param dLeastCount  shifts that leave fewer pixels to compare are passed over
    CShiftSearch(int iRange, double dLeastCount, Probe aProbe);

    enum class EResult
    {
        eFound,
        eNothing,  ///< no shift leaves enough pixels, or the images are constant
        eEnded     ///< by the probe
    };
    EResult Run(ShiftMatch& rMatch);

private:
    using Shift = std::pair<int, int>;

    double mCompare(double dX, double dY, CompareSums& rSums);
    double mGetScore(Shift aShift);
    std::vector<Shift> mScan(int iStep);
    Shift mClimb(Shift aShift, int iStep);
    bool mIsInside(Shift aShift) const;

    int m_iRange;
    double m_dLeastCount;
    Probe m_aProbe;
    bool m_bEnded = false;
    std::map<Shift, double> m_aScores;  // of the whole pixels so far; -2: not comparable
};

}  // namespace talven
