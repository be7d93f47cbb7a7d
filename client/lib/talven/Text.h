#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>

namespace talven
{

/// Notes why something failed; returns false.
bool Fail(std::string& rError, const std::string& strWhy);
/// printf into a string.
[[gnu::format(printf, 1, 2)]] std::string Format(const char* pcFormat, ...);
/// "1.2 GiB", "340 MiB", "12 kiB".
std::string FormatBytes(std::uint64_t ulBytes);
/// "0.42 s", "12.3 s", "3 min 05 s".
std::string FormatSeconds(double dSeconds);

/// Reads as many finite numbers as fNumbers has, and nothing else, with one or more of the
/// characters of strBetween between them.
[[nodiscard]] bool ParseNumbers(std::string_view strText, std::string_view strBetween,
                                std::span<float> fNumbers);

/// Takes one line of a text file without the blanks around it; false: it is wrong, rReason says
/// what was expected.
using LineTaker = std::function<bool(std::string_view strLine, std::string& rReason)>;
/// Hands on the lines of a text file that hold something; a '#' and what follows it is nothing.
/// \param strThings  what the lines hold, for the message: "angles"
/// \return false when the file cannot be read, holds nothing or has a wrong line; rError names the
///         file, the line and the reason.
[[nodiscard]] bool ReadLines(const std::string& strPath, const std::string& strThings,
                             const LineTaker& Take, std::string& rError);

}  // namespace talven
