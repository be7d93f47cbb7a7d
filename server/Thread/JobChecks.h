#pragma once

#include <cstddef>
#include <string>

#include "gpulib/App/JobShape.h"

class CAlignOp;

// Checks that the session's thread makes on the uploads before any worker starts. Each returns
// true, or false with the reason.

/// Stack, volume, selected projections, angles and weight box.
[[nodiscard]] bool CheckJobInputs(std::string& rReason);

/// What CheckJobInputs() does not look at: method, iterations, subsets, relaxation factors.
[[nodiscard]] bool CheckIterations(std::string& rReason);

/// Whether the workers of a job find the memory that they need.
/// \param tExtra  bytes that all workers together need besides
[[nodiscard]] bool CheckJobMemory(EJobKind eKind, std::string& rReason, std::size_t tExtra = 0);

/// The smoothing kernel, when the iterations will use it.
[[nodiscard]] bool CheckSmooth(std::string& rReason);
/// Memory of one smoothing pass, 0 when there will be none.
std::size_t GetSmoothBytes();

/// Both stacks, the projections that a request to transform or compare names, and the memory.
[[nodiscard]] bool CheckAlignInputs(const CAlignOp& rRequest, std::string& rReason);
