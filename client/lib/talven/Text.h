#pragma once

#include <cstdint>
#include <fstream>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

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

/// Reads one finite number and nothing else.
[[nodiscard]] bool ParseFinite(std::string_view strText, double& rNumber);

/// Without the blanks around it.
std::string_view Trim(std::string_view strText);
/// Whether they are the same but for capital letters.
bool IsSameWord(std::string_view strA, std::string_view strB);
/// The first 40 characters, as a message may show them: a binary file given by mistake must not end
/// up on the terminal.
std::string Show(std::string_view strText);
/// Parses view numbers counted from 1, "3,7-9", into the sorted indices from 0 without repeats.
/// \return false for anything else; rError says what was found.
[[nodiscard]] bool ParseViews(const std::string& strText, std::vector<int>& rViews,
                              std::string& rError);

/// Opens a text file for reading. \return false: rError names it and says why it cannot be read
[[nodiscard]] bool OpenText(const std::string& strPath, std::ifstream& rFile, std::string& rError);
/// Takes one line of a text file without the blanks around it; false: it is wrong, rReason says
/// what was expected.
using LineTaker = std::function<bool(std::string_view strLine, std::string& rReason)>;
/// Hands on the lines of a text that hold something; a character of strComment and what follows it
/// is nothing.
/// \param strName    of the text, for the message
/// \param strThings  what the lines hold, for the message: "angles"
/// \return false when the text cannot be read, holds nothing or has a wrong line; rError names the
///         text, the line and the reason.
[[nodiscard]] bool ReadLines(std::istream& rText, const std::string& strName,
                             const std::string& strThings, const LineTaker& Take,
                             std::string& rError, std::string_view strComment = "#");
/// The same of a file.
[[nodiscard]] bool ReadLines(const std::string& strPath, const std::string& strThings,
                             const LineTaker& Take, std::string& rError,
                             std::string_view strComment = "#");

}  // namespace talven
