#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

class CRemotePacket;

// What data replies carry. The first three return nothing, and the reason, when there is none.

std::span<const float> FindProj(std::uint32_t uiProj, std::string& rReason);    ///< [y][x]
std::span<const float> FindSlice(std::uint32_t uiSlice, std::string& rReason);  ///< [y][x]
/// R-factor sums of an iteration, a signed 16-bit number, shape [projection][2].
std::vector<float> FindRfactors(std::uint32_t uiIteration, std::string& rReason);

/// Puts the bytes of device memory that jobs may use into fields 6 (low word) and 7 (high word).
void SetServerProp(CRemotePacket& rReply);

/// Puts the milliseconds and sums of the last comparison into fields 6 to 14.
void SetCompareSums(CRemotePacket& rReply);
