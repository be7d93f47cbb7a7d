#include "gpulib/App/JobShape.h"

#include <algorithm>

#include "gpulib/Device/Backend.h"

std::size_t JobShape::GetRowBytes() const
{
    const std::size_t tProjs = std::size_t(iProjX) * iProjs * iProjImages;
    const std::size_t tSlice = (std::size_t(iVolX) + 2) * (std::size_t(iVolZ) + 2);
    return (tProjs + tSlice) * sizeof(float);
}

int JobShape::GetBatch() const
{
    return GetBackend()->GetBatchRows(std::max(iRows, 1), GetRowBytes());
}

std::size_t JobShape::GetWorkerBytes() const
{
    if (iRows == 0) return 0;
    // Tables exist twice while they are loaded; the sums are copied out and put in order.
    const std::size_t tWeights = 4 * std::size_t(iProjX) * iProjs * sizeof(float);
    const std::size_t tRanges = 4 * std::size_t(iRows) * iProjs * sizeof(float);
    const std::size_t tBatch = GetBackend()->UsesHostMemory() ? GetRowBytes() * GetBatch() : 0;
    return tBatch + tWeights + tRanges + 4 * tSums * sizeof(double);
}
