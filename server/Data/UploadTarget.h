#pragma once

#include <cstdint>
#include <span>

/// Memory of a holder that the data of an upload is received into, without a copy in between: first
/// the words, then the floats. Both are as long as the data, a rest of less than 4 bytes aside.
struct UploadTarget
{
    std::span<std::uint32_t> aWords;
    std::span<float> aFloats;
};
