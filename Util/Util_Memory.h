#pragma once

#include <cstddef>

/// The machine's main memory.
class Util_Memory
{
public:
    /// Bytes that can be taken without swapping, as the kernel estimates them; when it does not
    /// tell, the free pages.
    static std::size_t GetAvailable();
};
