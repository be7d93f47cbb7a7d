#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "talven/Alignment.h"
#include "talven/Schedule.h"

namespace talven
{

/// Parses "a,b,c", each a positive whole number.
[[nodiscard]] bool ParseSizes(const std::string& strText, std::vector<std::uint32_t>& rSizes,
                              std::string& rError);

/// Parses "X,Y", an image's size in pixels.
[[nodiscard]] bool ParseSize(const std::string& strText, ImageSize& rSize, std::string& rError);

/// Parses exactly iCount finite numbers, "a,b,c,d".
[[nodiscard]] bool ParseNumbers(const std::string& strText, std::size_t tCount,
                                std::vector<double>& rNumbers, std::string& rError);

/// Parses "SIGMA[,INTERVAL]": a standard deviation above 0 and up to 20 voxels, and a positive
/// number of iterations, 1 when it is not given.
[[nodiscard]] bool ParseSmoothing(const std::string& strText, double& rSigma, int& rInterval,
                                  std::string& rError);

/// Parses relaxation factors, finite and not negative: one number, one per iteration ("1,0.8,0.6"),
/// or START:DECAY.
[[nodiscard]] bool ParseRelaxation(const std::string& strText, Relaxation& rRelax,
                                   std::string& rError);

}  // namespace talven
