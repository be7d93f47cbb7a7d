#include "talven/AlignGauge.h"

#include <Eigen/Dense>
#include <numbers>

namespace talven
{

void RemoveGauge(std::span<const float> fAngles, std::span<const int> iUsed,
                 std::span<double> dAcross, std::span<double> dAlong)
{
    Eigen::MatrixX2d aBasis(Eigen::Index(iUsed.size()), 2);
    Eigen::VectorXd aAcross(aBasis.rows());
    double dMean = 0;
    for (Eigen::Index i = 0; i < aBasis.rows(); ++i)
    {
        const auto tView = std::size_t(iUsed[std::size_t(i)]);
        const double dAngle = double(fAngles[tView]) * std::numbers::pi / 180;
        aBasis.row(i) << std::cos(dAngle), std::sin(dAngle);
        aAcross(i) = dAcross[tView];
        dMean += dAlong[tView] / double(iUsed.size());
    }
    const Eigen::Vector2d aPart = aBasis.completeOrthogonalDecomposition().solve(aAcross);
    for (std::size_t i = 0; i < dAcross.size(); ++i)
    {
        const double dAngle = double(fAngles[i]) * std::numbers::pi / 180;
        dAcross[i] -= aPart(0) * std::cos(dAngle) + aPart(1) * std::sin(dAngle);
        dAlong[i] -= dMean;
    }
}

}  // namespace talven
