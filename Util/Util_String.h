#pragma once

#include <memory>

/// Helpers for C strings.
class Util_String
{
public:
    /// A copy on the heap, null for null.
    static std::unique_ptr<char[]> GetCopy(const char* pcText);
    /// Removes every blank in place; tabs stay. Null is left alone.
    static void RemoveSpace(char* pcText);
};
