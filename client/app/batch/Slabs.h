#pragma once

#include <functional>
#include <vector>

#include "talven/RowRange.h"

namespace talven
{

/// Rows that a worker of the server has at once: parts of a multiple of them lose no time.
inline constexpr int g_iRowsAtOnce = 32;

/// Cuts rows 0 to iRows - 1 into so many parts, at multiples of g_iRowsAtOnce where there are
/// enough rows. \param iParts  1 to iRows
std::vector<RowRange> CutIntoParts(int iRows, int iParts);
/// Cuts them into parts of so many rows; the last may have fewer.
std::vector<RowRange> CutByRows(int iRows, int iRowsEach);
/// The fewest parts that all fit. \return empty when even single rows do not
std::vector<RowRange> CutToFit(int iRows, const std::function<bool(const RowRange&)>& Fits);

}  // namespace talven
