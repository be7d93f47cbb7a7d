#pragma once

#include <array>
#include <span>
#include <vector>

/// Path lengths of all rays through one box, one per detector column and projection.
///
/// Lengths are pixels in the X-Z plane of the volume, the origin is its centre.
class CCalcWeightBase
{
public:
    /// A box by its centre (x, z) and full size (x, z).
    void SetBox(const std::array<float, 2>& rOrig, const std::array<float, 2>& rSize);
    /// \param fAngles  degrees, one per projection; borrowed until the calculation
    void SetProjs(int iProjX, int iProjs, std::span<const float> fAngles);

    /// Exact lengths, at least 1; 1 for a ray that misses the box.
    void Calculate();
    /// Lengths in an endless slab of the box's height; without bounds.
    void CalcSlab();

    std::vector<float>& GetWeight() { return m_vfWeight; }  ///< shape [proj][x]

private:
    using Point = std::array<double, 2>;  // detector coordinate, depth

    Point mTransform(double dX, double dZ) const;
    void mTransformVertices();
    float mCalcLength(float fU);
    void mHitLine(const Point& rP, const Point& rQ, double dU);

    std::vector<float> m_vfWeight;
    std::array<float, 2> m_afOrig{};
    std::array<float, 2> m_afSize{};
    int m_iProjX = 0;
    int m_iProjs = 0;
    std::span<const float> m_fAngles;
    std::array<Point, 4> m_aPoints{};  // the vertices at the current angle
    double m_dPointY[2] = {0, 0};      // depths where the current ray crosses the box
    int m_iHits = 0;
    double m_dCos = 1, m_dSin = 0;
};
