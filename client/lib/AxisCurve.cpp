#include "talven/AxisCurve.h"

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>

namespace talven
{

void AxisCurve::Add(double dAngle, double dScore)
{
    const auto pPlace = std::ranges::lower_bound(vdAngles, dAngle);
    vdScores.insert(vdScores.begin() + (pPlace - vdAngles.begin()), dScore);
    vdAngles.insert(pPlace, dAngle);
}

bool AxisCurve::Has(double dAngle) const
{
    return std::ranges::any_of(vdAngles, [&](double d) { return std::fabs(d - dAngle) < 1e-6; });
}

double AxisCurve::GetBestAngle() const
{
    return vdAngles[std::size_t(std::ranges::max_element(vdScores) - vdScores.begin())];
}

bool AxisCurve::IsBestAtEdge() const
{
    const auto [pLeast, pMost] = std::ranges::minmax_element(vdScores);
    return *pLeast < *pMost &&
           (GetBestAngle() == vdAngles.front() || GetBestAngle() == vdAngles.back());
}

void AxisCurve::Fit(double dReach)
{
    constexpr double dMostUncertain = 1;  // degrees
    const double dMiddle = GetBestAngle();
    std::vector<std::size_t> vtNear;
    for (std::size_t i = 0; i < vdAngles.size(); ++i)
        if (std::fabs(vdAngles[i] - dMiddle) < dReach + 1e-6) vtNear.push_back(i);
    const auto iNear = Eigen::Index(vtNear.size());
    Eigen::MatrixX3d aPowers(iNear, 3);
    Eigen::VectorXd aScores(iNear);
    for (Eigen::Index i = 0; i < iNear; ++i)
    {
        const double d = vdAngles[vtNear[std::size_t(i)]] - dMiddle;
        aPowers.row(i) << 1, d, d * d;
        aScores(i) = vdScores[vtNear[std::size_t(i)]];
    }
    dBest = dMiddle;
    bFlat = true;
    if (iNear < 4) return;
    const Eigen::Matrix3d aNormal = aPowers.transpose() * aPowers;
    const Eigen::Vector3d aFit = aNormal.ldlt().solve(aPowers.transpose() * aScores);
    if (!(aFit(2) < 0)) return;
    const double dPeak = -0.5 * aFit(1) / aFit(2);
    const double dVariance = (aScores - aPowers * aFit).squaredNorm() / double(iNear - 3);
    // How the peak moves with the coefficients, and the coefficients with the scores.
    const Eigen::Vector3d aSlope(0, -0.5 / aFit(2), 0.5 * aFit(1) / (aFit(2) * aFit(2)));
    dUncertainty = std::sqrt(dVariance * aSlope.dot(aNormal.inverse() * aSlope));
    bFlat = std::fabs(dPeak) > dReach || dUncertainty > dMostUncertain;
    if (!bFlat) dBest = dMiddle + dPeak;
}

}  // namespace talven
