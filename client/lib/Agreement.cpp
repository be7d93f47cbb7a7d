#include "talven/Agreement.h"

#include <cmath>

namespace talven
{

void CAgreement::Add(std::span<const float> fVolume, std::span<const float> fReference)
{
    m_dCount += static_cast<double>(fVolume.size());
    for (std::size_t i = 0; i < fVolume.size(); ++i)
    {
        const double dV = fVolume[i];
        const double dR = fReference[i];
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
