#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace talven
{

/// An input as it was when a batch was planned: a file, or a folder of files.
struct InputStamp
{
    std::string strPath;
    std::uint64_t ulBytes = 0;
    std::int64_t iTime = 0;  ///< of the last change, nanoseconds since 1970
    std::string strHash;     ///< of the first MiB: headers and texts; of a folder's list of files
};

/// \return false when it cannot be read; rError begins with its name
[[nodiscard]] bool MakeStamp(const std::string& strPath, InputStamp& rStamp, std::string& rError);
/// Whether the input is still what it was; else rError says what has changed.
[[nodiscard]] bool CheckStamp(const InputStamp& rStamp, std::string& rError);

/// 128 bits of XXH3, as hexadecimal digits.
std::string Hash(std::span<const std::byte> pBytes);

}  // namespace talven
