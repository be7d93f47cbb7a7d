#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// The largest size of a packet's data as a 32-bit number.
std::uint32_t ClampToUint32(std::uint64_t ulBytes);

/// Extents that an upload asks for: each at least 1, the product below 2^31.
/// \param pcWhat  what has this size, for the reason
[[nodiscard]] bool CheckExtents(const char* pcWhat, std::uint32_t uiX, std::uint32_t uiY,
                                std::uint32_t uiZ, std::string& rReason);

/// Whether the machine can hold what all holders have, with tOld bytes of it replaced by ulNew.
///
/// Zero pages of a holder that nobody has written yet count as held.
[[nodiscard]] bool CheckMemory(std::size_t tOld, std::uint64_t ulNew, std::string& rReason);
