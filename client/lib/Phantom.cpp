#include "talven/Phantom.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "Share.h"

namespace talven
{
namespace
{

using Vector = CEllipsoid::Vector;

constexpr double g_dRadian = std::numbers::pi / 180;
constexpr int g_iSamples = 3;  // along each side of a pixel or voxel
constexpr int g_iInVoxel = g_iSamples * g_iSamples * g_iSamples;

/// Offsets of the samples from the centre of a pixel: -1/3, 0, 1/3.
double SampleOffset(int iSample)
{
    return (iSample + 0.5) / g_iSamples - 0.5;
}

double Centre(int iExtent)
{
    return 0.5 * (iExtent - 1);
}

/// Samples of the voxel around a point that lie in the ellipsoid. Few voxels lie on its surface.
int CountInside(const CEllipsoid& rEllipsoid, const Vector& aPoint)
{
    const double dDistance = rEllipsoid.GetDistance(aPoint);
    const double dReach = rEllipsoid.GetVoxelReach() + 1e-9;
    if (dDistance > 1 + dReach) return 0;
    if (dDistance < 1 - dReach) return g_iInVoxel;
    int iInside = 0;
    for (int i = 0; i < g_iInVoxel; ++i)
        iInside += rEllipsoid.Contains({aPoint[0] + SampleOffset(i % g_iSamples),
                                        aPoint[1] + SampleOffset(i / g_iSamples % g_iSamples),
                                        aPoint[2] + SampleOffset(i / (g_iSamples * g_iSamples))});
    return iInside;
}

/// First and one-past-last index of the pixels that dFrom ... dTo may touch.
std::pair<int, int> GetIndices(double dFrom, double dTo, int iExtent)
{
    const double dCentre = Centre(iExtent);
    return {static_cast<int>(std::clamp(std::floor(dFrom + dCentre), 0.0, double(iExtent))),
            static_cast<int>(std::clamp(std::ceil(dTo + dCentre) + 1, 0.0, double(iExtent)))};
}

/// Puts ellipsoids at random into the body.
class CSpecimen
{
public:
    CSpecimen(int iX, int iY, int iZ, std::uint64_t ulSeed)
        : m_aHalf{0.5 * iX, 0.5 * iY, 0.5 * iZ}, m_aNoise(ulSeed)
    {
    }
    std::vector<CEllipsoid> Make(int iBeads);

private:
    double mBetween(double dLow, double dHigh)
    {
        return dLow + (dHigh - dLow) * m_aNoise.GetUniform();
    }
    /// A centre that keeps dRadius clear of the surface of the body, whose radii are dPart of the
    /// half extents of the volume.
    Vector mPlace(double dPart, double dRadius);
    void mAdd(double dPart, const Vector& aRadii, double dDensity, bool bHollow);

    Vector m_aHalf;
    CNoise m_aNoise;
    std::vector<CEllipsoid> m_aAll;
};

Vector CSpecimen::mPlace(double dPart, double dRadius)
{
    Vector aPoint{};
    for (int iTry = 0; iTry < 200; ++iTry)
    {
        double dSquare = 0;
        for (std::size_t i = 0; i < 3; ++i)
        {
            const double dUnit = mBetween(-1, 1);
            dSquare += dUnit * dUnit;
            aPoint[i] = dUnit * std::max(0.0, dPart * m_aHalf[i] - dRadius);
        }
        if (dSquare <= 1) return aPoint;
    }
    return aPoint;
}

void CSpecimen::mAdd(double dPart, const Vector& aRadii, double dDensity, bool bHollow)
{
    const Vector aCentre = mPlace(dPart, *std::max_element(aRadii.begin(), aRadii.end()));
    const double dTurnZ = mBetween(0, 180);
    const double dTurnY = mBetween(-25, 25);
    m_aAll.emplace_back(aCentre, aRadii, dTurnZ, dTurnY, dDensity);
    if (!bHollow) return;
    Vector aInner = aRadii;
    for (double& rRadius : aInner) rRadius *= 0.72;
    m_aAll.emplace_back(aCentre, aInner, dTurnZ, dTurnY, -0.85 * dDensity);
}

std::vector<CEllipsoid> CSpecimen::Make(int iBeads)
{
    const double dUnit = std::min({m_aHalf[0], m_aHalf[1], m_aHalf[2]});
    const Vector aBody = {0.80 * m_aHalf[0], 0.86 * m_aHalf[1], 0.84 * m_aHalf[2]};
    m_aAll.emplace_back(Vector{}, aBody, 0, 0, 1.0);
    const auto Radii = [&](double dA, double dB, double dC) {
        return Vector{dA * dUnit, dB * dUnit, dC * dUnit};
    };
    for (int i = 0; i < 8; ++i)  // vesicles
    {
        const double dSize = mBetween(0.22, 0.42);
        mAdd(0.78, Radii(dSize * mBetween(1, 1.5), dSize, dSize), 1.0, true);
    }
    for (int i = 0; i < 24; ++i)  // granules
    {
        const double dSize = mBetween(0.06, 0.16);
        mAdd(0.78, Radii(dSize, dSize * mBetween(0.7, 1), dSize), mBetween(0.8, 1.8), false);
    }
    for (int i = 0; i < 8; ++i)  // filaments
        mAdd(0.78, Radii(mBetween(0.5, 0.7), 0.045, 0.045), 1.2, false);
    for (int i = 0; i < iBeads; ++i)
    {
        const double dSize = std::max(1.5, 0.05 * dUnit);
        const Vector aCentre = mPlace(0.82, dSize);
        m_aAll.emplace_back(aCentre, Vector{dSize, dSize, dSize}, 0, 0, 12.0);
    }
    return m_aAll;
}

}  // namespace

CEllipsoid::CEllipsoid(const Vector& aCentre, const Vector& aRadii, double dTurnZ, double dTurnY,
                       double dDensity)
    : m_aCentre(aCentre), m_dDensity(dDensity)
{
    const double dCz = std::cos(dTurnZ * g_dRadian), dSz = std::sin(dTurnZ * g_dRadian);
    const double dCy = std::cos(dTurnY * g_dRadian), dSy = std::sin(dTurnY * g_dRadian);
    // Columns: the ellipsoid's own axes in the volume, Ry Rz e_k.
    const std::array<Vector, 3> aAxes = {Vector{dCy * dCz, dSz, -dSy * dCz},
                                         Vector{-dCy * dSz, dCz, dSy * dSz}, Vector{dSy, 0, dCy}};
    for (std::size_t i = 0; i < 3; ++i)
    {
        double dReach = 0;
        for (std::size_t j = 0; j < 3; ++j)
        {
            m_aMatrix[i][j] = 0;
            for (std::size_t k = 0; k < 3; ++k)
                m_aMatrix[i][j] += aAxes[k][i] * aAxes[k][j] / (aRadii[k] * aRadii[k]);
        }
        for (std::size_t k = 0; k < 3; ++k)
            dReach += aAxes[k][i] * aAxes[k][i] * aRadii[k] * aRadii[k];
        m_aReach[i] = std::sqrt(dReach);
    }
    for (const double dX : {-0.5, 0.5})
        for (const double dY : {-0.5, 0.5})
        {
            const Vector aCorner = {dX, dY, 0.5};
            m_dVoxelReach = std::max(m_dVoxelReach, std::sqrt(mForm(aCorner, aCorner)));
        }
}

double CEllipsoid::mForm(const Vector& a, const Vector& b) const
{
    double dSum = 0;
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j) dSum += a[i] * m_aMatrix[i][j] * b[j];
    return dSum;
}

double CEllipsoid::mGetSquare(const Vector& aPoint) const
{
    const Vector aFrom = {aPoint[0] - m_aCentre[0], aPoint[1] - m_aCentre[1],
                          aPoint[2] - m_aCentre[2]};
    return mForm(aFrom, aFrom);
}

double CEllipsoid::GetDistance(const Vector& aPoint) const
{
    return std::sqrt(mGetSquare(aPoint));
}

double CEllipsoid::GetChord(const Vector& aPoint, const Vector& aDirection) const
{
    // |p + t d| = 1 in the form M: a t^2 + 2 b t + c = 0.
    const Vector aFrom = {aPoint[0] - m_aCentre[0], aPoint[1] - m_aCentre[1],
                          aPoint[2] - m_aCentre[2]};
    const double dA = mForm(aDirection, aDirection);
    const double dB = mForm(aFrom, aDirection);
    const double dC = mForm(aFrom, aFrom) - 1;
    const double dRoot = dB * dB - dA * dC;
    return dRoot > 0 ? 2 * std::sqrt(dRoot) / dA : 0;
}

CPhantomModel::CPhantomModel(int iX, int iY, int iZ, int iBeads, std::uint64_t ulSeed)
    : CPhantomModel(iX, iY, iZ, CSpecimen(iX, iY, iZ, ulSeed).Make(iBeads))
{
}

CPhantomModel::CPhantomModel(int iX, int iY, int iZ, std::vector<CEllipsoid> aEllipsoids)
    : m_iX(iX), m_iY(iY), m_iZ(iZ), m_aEllipsoids(std::move(aEllipsoids))
{
}

void CPhantomModel::MakeSection(int iZ, std::span<float> fPixels) const
{
    Share(CountThreads(), m_iY, [&](int, int y) { mMakeRow(iZ, y, mGetRow(fPixels, y)); });
}

void CPhantomModel::mMakeRow(int iZ, int iY, std::span<float> fRow) const
{
    std::ranges::fill(fRow, 0.0f);
    const double dZ = iZ - Centre(m_iZ);
    for (const CEllipsoid& rEllipsoid : m_aEllipsoids)
    {
        const Vector& aC = rEllipsoid.GetCentre();
        const Vector& aR = rEllipsoid.GetReach();
        const auto [iFirstY, iEndY] = GetIndices(aC[1] - aR[1], aC[1] + aR[1], m_iY);
        if (std::fabs(dZ - aC[2]) > aR[2] + 1 || iY < iFirstY || iY >= iEndY) continue;
        const auto [iFirstX, iEndX] = GetIndices(aC[0] - aR[0], aC[0] + aR[0], m_iX);
        for (int x = iFirstX; x < iEndX; ++x)
            fRow[std::size_t(x)] += static_cast<float>(
                rEllipsoid.GetDensity() *
                CountInside(rEllipsoid, {x - Centre(m_iX), iY - Centre(m_iY), dZ}) / g_iInVoxel);
    }
}

void CPhantomModel::MakeProjection(double dAngle, std::span<float> fPixels) const
{
    Share(CountThreads(), m_iY, [&](int, int y) { mProjectRow(dAngle, y, mGetRow(fPixels, y)); });
}

void CPhantomModel::mProjectRow(double dAngle, int iY, std::span<float> fRow) const
{
    std::ranges::fill(fRow, 0.0f);
    const double dCos = std::cos(dAngle * g_dRadian);
    const double dSin = std::sin(dAngle * g_dRadian);
    const Vector aRay = {-dSin, 0, dCos};
    for (const CEllipsoid& rEllipsoid : m_aEllipsoids)
    {
        const Vector& aC = rEllipsoid.GetCentre();
        const Vector& aR = rEllipsoid.GetReach();
        const auto [iFirstY, iEndY] = GetIndices(aC[1] - aR[1], aC[1] + aR[1], m_iY);
        if (iY < iFirstY || iY >= iEndY) continue;
        const double dU = aC[0] * dCos + aC[2] * dSin;
        const double dReach = aR[0] * std::fabs(dCos) + aR[2] * std::fabs(dSin);
        const auto [iFirstX, iEndX] = GetIndices(dU - dReach, dU + dReach, m_iX);
        for (int x = iFirstX; x < iEndX; ++x)
        {
            double dLength = 0;
            for (int i = 0; i < g_iSamples * g_iSamples; ++i)
            {
                const double dAcross = x - Centre(m_iX) + SampleOffset(i % g_iSamples);
                const double dAlong = iY - Centre(m_iY) + SampleOffset(i / g_iSamples);
                dLength += rEllipsoid.GetChord({dAcross * dCos, dAlong, dAcross * dSin}, aRay);
            }
            fRow[std::size_t(x)] +=
                static_cast<float>(rEllipsoid.GetDensity() * dLength / (g_iSamples * g_iSamples));
        }
    }
}

/// SplitMix64 (Steele, Lea, Flood 2014: Fast splittable pseudorandom number generators).
std::uint64_t CNoise::mNext()
{
    std::uint64_t ulMixed = (m_ulState += 0x9E3779B97F4A7C15u);
    ulMixed = (ulMixed ^ (ulMixed >> 30)) * 0xBF58476D1CE4E5B9u;
    ulMixed = (ulMixed ^ (ulMixed >> 27)) * 0x94D049BB133111EBu;
    return ulMixed ^ (ulMixed >> 31);
}

double CNoise::GetUniform()
{
    return static_cast<double>(mNext() >> 11) * 0x1p-53;
}

double CNoise::GetGaussian()
{
    const double dRadius = std::sqrt(-2 * std::log(1 - GetUniform()));
    return dRadius * std::cos(2 * std::numbers::pi * GetUniform());
}

double CNoise::GetPoisson(double dMean)
{
    if (dMean > 50) return std::max(0.0, std::round(dMean + std::sqrt(dMean) * GetGaussian()));
    const double dLimit = std::exp(-dMean);
    double dProduct = GetUniform();
    int iCount = 0;
    for (; dProduct > dLimit; ++iCount) dProduct *= GetUniform();
    return iCount;
}

CDetector::CDetector(const CPhantomModel& rModel, std::span<const float> fAngles, double dNoise,
                     double dDose, std::uint64_t ulSeed)
    : m_rModel(rModel),
      m_dNoise(dNoise),
      m_dDose(dDose),
      m_aNoise(ulSeed ^ 0x6E6F697365)  // not the stream that placed the objects
{
    if (m_dNoise <= 0 && m_dDose <= 0) return;
    // All projections have the same sum but for what leaves the field.
    const float fNearest =
        *std::min_element(fAngles.begin(), fAngles.end(),
                          [](float fA, float fB) { return std::fabs(fA) < std::fabs(fB); });
    std::vector<float> vfPixels(rModel.GetProjectionPixels());
    rModel.MakeProjection(fNearest, vfPixels);
    for (const float fPixel : vfPixels) m_dMean += fPixel;
    m_dMean /= double(vfPixels.size());
}

void CDetector::Record(double dAngle, std::span<float> fPixels)
{
    m_rModel.MakeProjection(dAngle, fPixels);
    const double dCounts = m_dMean > 0 ? m_dDose / m_dMean : 0;  // per unit of signal
    if (m_dNoise <= 0 && dCounts <= 0) return;
    for (float& rPixel : fPixels)
    {
        double dValue = rPixel;
        if (dCounts > 0) dValue = m_aNoise.GetPoisson(dValue * dCounts) / dCounts;
        if (m_dNoise > 0) dValue += m_dNoise * m_dMean * m_aNoise.GetGaussian();
        rPixel = static_cast<float>(dValue);
    }
}

}  // namespace talven
