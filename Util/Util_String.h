#pragma once

#include <cstdarg>
#include <memory>
#include <string>

/// Helpers for C strings.
class Util_String
{
public:
    /// A copy on the heap, null for null.
    static std::unique_ptr<char[]> GetCopy(const char* pcText);
    /// Removes every blank in place; tabs stay. Null is left alone.
    static void RemoveSpace(char* pcText);
    /// The text that printf would print, cut off after 511 characters.
    [[gnu::format(printf, 1, 2)]] static std::string Format(const char* pcFormat, ...);
    [[gnu::format(printf, 1, 0)]] static std::string FormatList(const char* pcFormat,
                                                                std::va_list aArgs);
};
