#include "Agreement.h"

#include <cmath>

namespace talven
{

void CAgreement::Add(std::span<const float> pfVolume, std::span<const float> pfReference)
{
    m_dCount += static_cast<double>(pfVolume.size());
    for (std::size_t i = 0; i < pfVolume.size(); ++i)
    {
        const double dV = pfVolume[i];
        const double dR = pfReference[i];
        m_dSumV += dV;
        m_dSumR += dR;
        m_dSumVV += dV * dV;
        m_dSumRR += dR * dR;
        m_dSumVR += dV * dR;
        m_dSquaredError += (dV - dR) * (dV - dR);
    }
}

double CAgreement::GetCorrelation() const
{
    const double dVariances =
        (m_dSumVV - m_dSumV * m_dSumV / m_dCount) * (m_dSumRR - m_dSumR * m_dSumR / m_dCount);
    return dVariances > 0 ? (m_dSumVR - m_dSumV * m_dSumR / m_dCount) / std::sqrt(dVariances) : 0;
}

double CAgreement::GetRelativeError() const
{
    return std::sqrt(m_dSquaredError / m_dSumRR);
}

}  // namespace talven
