#pragma once

#include <cstdint>
#include <string>

#include "talven/Alignment.h"

namespace talven
{

/// Memory that this machine can give to a private server now, bytes: what is free and what the
/// limits of our control groups leave; 0 when that is not known.
std::uint64_t GetFreeMemory();

/// A stack and a volume of floats as a server holds them. The rows of the volume are the stack's.
struct JobSize
{
    int iProjX = 1, iProjY = 1, iProjs = 1;
    int iVolX = 1, iVolZ = 1;
    bool bSmooth = false;      ///< smoothing works on a copy of the volume
    ImageSize aMeasured = {};  ///< of a measured image that the server maps onto the stack's

    std::uint64_t GetStackPixels() const;
    std::uint64_t GetVoxels() const;
    /// Memory that a server with so many devices needs.
    std::uint64_t GetBytes(int iDevices) const;
};

/// Checks the limits of the protocol, and for a server on this machine its memory.
[[nodiscard]] bool CheckJobSize(const JobSize& rSize, bool bHere, std::string& rError);

}  // namespace talven
