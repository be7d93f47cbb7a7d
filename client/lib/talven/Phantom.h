#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace talven
{

/// An ellipsoid of constant density; coordinates in voxels from the centre of the volume.
class CEllipsoid
{
public:
    using Vector = std::array<double, 3>;  // x, y, z

    /// \param aRadii  semi-axes along the ellipsoid's own x, y, z
    /// \param dTurnZ, dTurnY  degrees by which it is turned about Z first, then about Y
    CEllipsoid(const Vector& aCentre, const Vector& aRadii, double dTurnZ, double dTurnY,
               double dDensity);

    double GetDensity() const { return m_dDensity; }
    const Vector& GetCentre() const { return m_aCentre; }
    /// No point lies further from the centre along x, y and z.
    const Vector& GetReach() const { return m_aReach; }
    bool Contains(const Vector& aPoint) const { return mGetSquare(aPoint) <= 1; }
    /// From the centre; 1 on the surface, and a norm: |p + d| <= |p| + |d|.
    double GetDistance(const Vector& aPoint) const;
    /// Such distance of two points in one voxel is at most twice this.
    double GetVoxelReach() const { return m_dVoxelReach; }
    /// Length of the line through a point, along a unit vector, within the ellipsoid.
    double GetChord(const Vector& aPoint, const Vector& aDirection) const;

private:
    double mForm(const Vector& a, const Vector& b) const;
    double mGetSquare(const Vector& aPoint) const;  // of the distance

    Vector m_aCentre, m_aReach;
    std::array<Vector, 3> m_aMatrix;  // points with (p - c)' M (p - c) <= 1
    double m_dDensity;
    double m_dVoxelReach = 0;  // of the corners of a voxel from its centre
};

/// A specimen of ellipsoids, with its exact projections.
///
/// The geometry is the server's: the tilt axis is Y, and the point (x, z) of a section falls on
/// detector coordinate (X - 1) / 2 + x cos a + z sin a at the tilt angle a.
class CPhantomModel
{
public:
    /// A cell-like body with vesicles, granules, filaments and fiducial beads, chosen by the seed,
    /// that stays within X x Y x Z.
    CPhantomModel(int iX, int iY, int iZ, int iBeads, std::uint64_t ulSeed);
    /// Any other specimen.
    CPhantomModel(int iX, int iY, int iZ, std::vector<CEllipsoid> aEllipsoids);

    std::size_t GetProjectionPixels() const { return std::size_t(m_iX) * std::size_t(m_iY); }
    /// Section iZ of the volume: density, the mean over each voxel.
    void MakeSection(int iZ, std::span<float> fPixels) const;
    /// Projection at a tilt angle, degrees: density times length in voxels, the mean over each
    /// pixel.
    void MakeProjection(double dAngle, std::span<float> fPixels) const;

private:
    std::span<float> mGetRow(std::span<float> fPixels, int iY) const
    {
        return fPixels.subspan(std::size_t(iY) * std::size_t(m_iX), std::size_t(m_iX));
    }
    void mMakeRow(int iZ, int iY, std::span<float> fRow) const;
    void mProjectRow(double dAngle, int iY, std::span<float> fRow) const;

    int m_iX, m_iY, m_iZ;
    std::vector<CEllipsoid> m_aEllipsoids;
};

/// Noise of a detector, the same for the same seed everywhere.
class CNoise
{
public:
    explicit CNoise(std::uint64_t ulSeed) : m_ulState(ulSeed) {}
    double GetUniform();   ///< 0 <= u < 1
    double GetGaussian();  ///< mean 0, standard deviation 1
    double GetPoisson(double dMean);

private:
    std::uint64_t mNext();
    std::uint64_t m_ulState;
};

/// A detector that records projections of a model with noise.
class CDetector
{
public:
    /// \param rModel   borrowed
    /// \param fAngles  of the series, degrees; the projection nearest to 0 gives the mean signal
    /// \param dNoise   Gaussian noise, its standard deviation over that mean; 0: none
    /// \param dDose    Poisson noise, counts per pixel where the signal is that mean; 0: none
    CDetector(const CPhantomModel& rModel, std::span<const float> fAngles, double dNoise,
              double dDose, std::uint64_t ulSeed);
    /// The next projection; the noise goes on where the one before ended.
    void Record(double dAngle, std::span<float> fPixels);

private:
    const CPhantomModel& m_rModel;
    double m_dNoise, m_dDose;
    double m_dMean = 0;
    CNoise m_aNoise;
};

}  // namespace talven
