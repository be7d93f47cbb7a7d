#pragma once

// The limits of the device seam, one place for each. What a user asks for is refused at admission,
// where the reason is read; the seam checks again, because kernels index without looking.

/// Columns, rows and slices of an image that is sampled: float coordinates stay exact up to here.
constexpr int g_iMaxExtent = (1 << 23) - 1;

/// Extent of any image: positions beside it stay within int.
constexpr int g_iMaxImage = (1 << 30) - 1;

/// Slices and selected projections of a job, rows of a launch.
constexpr int g_iMaxGrid = 65535;

/// Extent of a smoothing kernel: beyond it a tile with its neighbours outgrows any cache.
constexpr int g_iMaxKernelExtent = 1024;

/// Rows of R-factors and comparisons are summed as so many partial sums, each over every so many-th
/// column, and then by halves; the sums of a comparison's rows likewise.
constexpr int g_iPartialSums = 256;
