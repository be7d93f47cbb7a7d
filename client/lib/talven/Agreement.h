#pragma once

#include <cstdint>
#include <span>

namespace talven
{

/// How well a volume agrees with a reference, from both passing by in parts.
class CAgreement
{
public:
    void Add(std::span<const float> fVolume, std::span<const float> fReference);
    /// Normalised cross-correlation (both less their means), -1 to 1; 0 when one is constant.
    double GetCorrelation() const;
    /// Root of the squared differences over the squares of the reference; NaN for a zero reference.
    double GetRelativeError() const;

private:
    double m_dCount = 0;
    double m_dSumV = 0, m_dSumR = 0, m_dSumVV = 0, m_dSumRR = 0, m_dSumVR = 0;
    double m_dSquaredError = 0;
};

}  // namespace talven
