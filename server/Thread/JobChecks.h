#pragma once

#include <string>

#include "gpulib/App/JobShape.h"

class CAlignOp;
struct AlignJob;
struct ReconJob;

// The session's thread describes a job from what the client uploaded before any worker starts. Each
// function returns true, or false with the reason why there is none.

/// Stack, volume, selected projections, angles and weight box.
[[nodiscard]] bool DescribeJob(ReconJob& rJob, std::string& rReason);

/// Iterations, subsets, relaxation factors and smoothing of a job that DescribeJob() has begun.
[[nodiscard]] bool DescribeIterations(ReconJob& rJob, std::string& rReason);

/// Whether the workers of a job find the memory that they need.
[[nodiscard]] bool CheckJobMemory(const ReconJob& rJob, EJobKind eKind, std::string& rReason);

/// Both stacks, the projections that a request to transform or compare names, its numbers, and the
/// memory. rJob.bLog is left alone.
[[nodiscard]] bool DescribeAlign(const CAlignOp& rRequest, AlignJob& rJob, std::string& rReason);
