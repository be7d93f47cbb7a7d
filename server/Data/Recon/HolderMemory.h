#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "server/Data/UploadTarget.h"

class Util_Volume;

/// The largest size of a packet's data as a 32-bit number.
std::uint32_t ClampToUint32(std::uint64_t ulBytes);

/// Extents that an upload asks for: each at least 1, the product below 2^31.
/// \param pcWhat  what has this size, for the reason
[[nodiscard]] bool CheckExtents(const char* pcWhat, std::uint32_t uiX, std::uint32_t uiY,
                                std::uint32_t uiZ, std::string& rReason);

/// XY slice uiSlice of a volume as the target of uiBytes of data; nothing when there is no such
/// slice or the data is longer.
std::optional<UploadTarget> GetSliceTarget(Util_Volume& rVolume, std::uint32_t uiSlice,
                                           std::uint32_t uiBytes, std::string& rReason);

/// Whether the machine can hold what all holders have, with tOld bytes of it replaced by ulNew.
///
/// Zero pages of a holder that nobody has written yet count as held.
[[nodiscard]] bool CheckMemory(std::size_t tOld, std::uint64_t ulNew, std::string& rReason);
