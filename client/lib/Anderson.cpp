#include "talven/Anderson.h"

#include <Eigen/Dense>

namespace talven
{

std::vector<double> CAnderson::Step(std::span<const double> dX, std::span<const double> dStep)
{
    constexpr double dRegular = 1e-3;  // of the mean square: steps are noisy
    m_aPoints.push_back({{dX.begin(), dX.end()}, {dStep.begin(), dStep.end()}});
    if (m_aPoints.size() > m_tDepth + 1) m_aPoints.pop_front();

    using Vector = Eigen::Map<const Eigen::VectorXd>;
    const auto View = [](const std::vector<double>& r)
    { return Vector(r.data(), Eigen::Index(r.size())); };
    const Point& rLast = m_aPoints.back();
    Eigen::VectorXd aNext = View(rLast.vdX) + View(rLast.vdStep);
    const auto iBack = Eigen::Index(m_aPoints.size()) - 1;
    if (iBack > 0)
    {
        Eigen::MatrixXd aMoved(aNext.size(), iBack), aChange(aNext.size(), iBack);
        for (Eigen::Index i = 0; i < iBack; ++i)
        {
            const Point &rA = m_aPoints[std::size_t(i)], &rB = m_aPoints[std::size_t(i + 1)];
            aMoved.col(i) = View(rB.vdX) - View(rA.vdX);
            aChange.col(i) = View(rB.vdStep) - View(rA.vdStep);
        }
        Eigen::MatrixXd aNormal = aChange.transpose() * aChange;
        const double dMean = aNormal.trace() / double(iBack);
        aNormal.diagonal().array() += dRegular * dMean;
        if (dMean > 0)
            aNext -=
                (aMoved + aChange) * aNormal.ldlt().solve(aChange.transpose() * View(rLast.vdStep));
    }
    return {aNext.begin(), aNext.end()};
}

}  // namespace talven
