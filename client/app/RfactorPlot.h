#pragma once

#include <span>
#include <string>

#include "Picture.h"

namespace talven
{

/// Draws the R-factor after every iteration.
CPicture DrawRfactors(std::span<const double> dRfactors, const std::string& strTitle);
[[nodiscard]] bool WriteRfactorPlot(const std::string& strPath, std::span<const double> dRfactors,
                                    const std::string& strTitle, std::string& rError);

}  // namespace talven
