#pragma once

#include <cstddef>
#include <span>

/// Memory of a holder that the data of an upload is received into, without a copy in between. Both
/// parts together are as long as the data, and both begin with a word of it.
struct UploadTarget
{
    std::span<std::byte> aFirst;
    std::span<std::byte> aSecond;
};
