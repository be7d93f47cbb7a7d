#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace talven
{

/// Parses view numbers counted from 1, "3,7-9", into the sorted indices from 0 without repeats.
/// \return false for anything else; rError says what was found.
[[nodiscard]] bool ParseViews(const std::string& strText, std::vector<int>& rViews,
                              std::string& rError);

/// Parses "a,b,c", each a positive whole number.
[[nodiscard]] bool ParseSizes(const std::string& strText, std::vector<std::uint32_t>& rSizes,
                              std::string& rError);

/// Parses exactly iCount finite numbers, "a,b,c,d".
[[nodiscard]] bool ParseNumbers(const std::string& strText, std::size_t tCount,
                                std::vector<double>& rNumbers, std::string& rError);

/// Parses "SIGMA[,INTERVAL]": a standard deviation above 0 and up to 20 voxels, and a positive
/// number of iterations, 1 when it is not given.
[[nodiscard]] bool ParseSmoothing(const std::string& strText, double& rSigma, int& rInterval,
                                  std::string& rError);

/// Relaxation factors by iteration: one number for all, one per iteration ("1,0.8,0.6"), or
/// START:DECAY, each iteration's factor being DECAY times the one before.
class CRelaxation
{
public:
    /// \return false unless all numbers are finite and not negative.
    [[nodiscard]] bool Parse(const std::string& strText, std::string& rError);
    /// The table [iteration][subset].
    /// \return false when a list has not one entry per iteration.
    [[nodiscard]] bool MakeTable(int iIterations, int iSets, std::vector<float>& rTable,
                                 std::string& rError) const;

private:
    std::vector<double> m_vdFactors = {1.0};
    double m_dDecay = 1.0;  // of a single factor
};

}  // namespace talven
