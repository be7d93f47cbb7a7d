#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "server/Data/RequestPlan.h"

class Util_Volume;

/// Extents that a request asks for, from its fields 4, 5 and 6: X, Y and images or slices.
struct Extents
{
    std::uint32_t uiX, uiY, uiZ;

    explicit Extents(const CRemotePacket& rPacket);
    std::uint64_t GetVoxels() const { return std::uint64_t{uiX} * uiY * uiZ; }
    /// Each at least 1, the product below 2^31.
    /// \param pcWhat  what has this size, for the reason
    [[nodiscard]] bool Check(const char* pcWhat, std::string& rReason) const;
    std::unique_ptr<Util_Volume> MakeVolume() const;  ///< of zeros
};

/// XY slice uiSlice of a volume receives the data; refused when there is no such slice or the data
/// is longer.
CRequestPlan PlanSlice(Util_Volume& rVolume, std::uint32_t uiSlice, const CRemotePacket& rPacket);

/// Whether the machine can hold what all holders have, with tOld bytes of it replaced by ulNew.
///
/// Zero pages of a holder that nobody has written yet count as held.
[[nodiscard]] bool CheckMemory(std::size_t tOld, std::uint64_t ulNew, std::string& rReason);
