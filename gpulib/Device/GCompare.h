#pragma once

#include <array>

#include "gpulib/Device/KernelParams.h"
#include "gpulib/Device/PitchedPtr2D.h"

/// The nine sums of a comparison, indexed by ECompareSum.
using CompareTotals = std::array<float, eCompareSums>;

/// Driver of the sums of a comparison. Owns the sums of the rows, holds the images by value.
///
/// The band may be given piece by piece: its totals are formed from the sums of single rows, so
/// they do not depend on the pieces.
class GCompare
{
public:
    void BindAlignedProj(const DeviceImage& rImage) { m_aAligned = rImage; }
    void BindTransedProj(const DeviceImage& rImage) { m_aTransed = rImage; }
    void BindMissingData(const DeviceImage& rImage) { m_aMiss = rImage; }

    [[nodiscard]] bool AllocMemory(int iWidth, int iRows);  ///< size of the band
    /// Sums rows 0 .. iRows - 1 of the images, which are rows iFirst, ... of the band.
    [[nodiscard]] bool DoIt(int iFirst, int iRows) const;
    /// Totals of the band, by rows as by columns: partial sums, then by halves.
    [[nodiscard]] bool GetTotals(CompareTotals& rTotals) const;

private:
    DeviceImage m_aAligned, m_aTransed, m_aMiss;
    CPitchedPtr2D m_aSums;  // [ECompareSum][row]
    int m_iWidth = 0;
};
