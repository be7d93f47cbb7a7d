#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace talven
{

/// Reads the tilt angles, degrees, in the extended header of an MRC file, one for each section.
///
/// Three layouts: FEI1 and FEI2, a double at byte 100 of each section's record; SERI, also without
/// its name, where words of 16 bits hold the angle times 100; and records of 32-bit floats that
/// begin with the angle (AGAR, and older files without a name).
/// \param pBytes  the header and the extended header
/// \return false when there are none or they make no sense; rError says why, without naming the
///         file, rAngles stays as it was.
[[nodiscard]] bool ParseHeaderAngles(std::span<const std::byte> pBytes, std::vector<float>& rAngles,
                                     std::string& rError);
/// The same of a file. rError names it.
[[nodiscard]] bool ReadHeaderAngles(const std::string& strPath, std::vector<float>& rAngles,
                                    std::string& rError);

}  // namespace talven
