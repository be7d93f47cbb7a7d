#pragma once

#include <span>
#include <vector>

#include "talven/Alignment.h"

namespace talven
{

/// A slice of a volume, shape [iHeight][iWidth]: [y][x] across z, [y][z] across x, [z][x] across y.
struct Slice
{
    char cAxis;  ///< the axis across it: 'x', 'y' or 'z'
    int iAt;     ///< where on that axis it lies, from 0
    int iWidth = 0, iHeight = 0;
    std::vector<float> vfPixels{};
};

/// Cuts slices out of a volume that passes by section by section.
class CSlices
{
public:
    CSlices(int iX, int iY, int iZ) : m_iX(iX), m_iY(iY), m_iZ(iZ) {}
    int GetExtent(char cAxis) const { return cAxis == 'x' ? m_iX : cAxis == 'y' ? m_iY : m_iZ; }
    /// Columns and rows of a slice across an axis.
    ImageSize GetSliceSize(char cAxis) const
    {
        return {cAxis == 'x' ? m_iZ : m_iX, cAxis == 'y' ? m_iZ : m_iY};
    }
    /// Adds a slice to those wanted; iAt is within the extent.
    void Want(char cAxis, int iAt);
    /// The three in the middle: across z, x and y.
    void WantCentral();
    /// Whether section iZ has a part of a slice.
    bool Needs(int iZ) const;
    /// Takes section iZ, shape [y][x].
    void Add(int iZ, std::span<const float> fSection);
    /// In the order in which they were asked for.
    std::span<const Slice> Get() const { return m_aSlices; }

private:
    int m_iX, m_iY, m_iZ;
    std::vector<Slice> m_aSlices;
};

/// The values below which dLowPercent and dHighPercent of the pixels of all images lie; missing
/// pixels do not count. 0 and 0 for none.
struct Percentiles
{
    float fLow = 0, fHigh = 0;
};
Percentiles FindPercentiles(std::span<const Slice> aSlices, double dLowPercent,
                            double dHighPercent);

}  // namespace talven
