#pragma once

#include <span>
#include <string>

namespace talven
{

/// Draws the R-factor after every iteration.
[[nodiscard]] bool WriteRfactorPlot(const std::string& strPath, std::span<const double> dRfactors,
                                    const std::string& strTitle, std::string& rError);

}  // namespace talven
