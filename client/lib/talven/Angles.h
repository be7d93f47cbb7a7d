#pragma once

#include <istream>
#include <span>
#include <string>
#include <vector>

namespace talven
{

/// Reads tilt angles, degrees, from a text file (.tlt, .rawtlt): one per line. Blank lines and
/// everything from a '#' on are skipped.
/// \return false when the file cannot be read, has no angle, or has a line that is not one number
///         within +-360; rError names the line, rAngles stays as it was.
[[nodiscard]] bool ReadAngles(const std::string& strPath, std::vector<float>& rAngles,
                              std::string& rError);
/// The same from a text that messages call strName.
[[nodiscard]] bool ReadAngles(std::istream& rText, const std::string& strName,
                              std::vector<float>& rAngles, std::string& rError);

/// Writes one angle per line with two decimals, or as many as they need.
[[nodiscard]] bool WriteAngles(const std::string& strPath, std::span<const float> fAngles,
                               std::string& rError);

}  // namespace talven
