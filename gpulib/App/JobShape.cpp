#include "gpulib/App/JobShape.h"

#include <algorithm>

#include "Util/TomoVolume.h"
#include "Util/Util_Volume.h"
#include "gpulib/App/Job.h"
#include "gpulib/Device/Backend.h"

CJobShape::CJobShape(const ReconJob& rJob, EJobKind eKind)
    : m_tStackRow(std::size_t(rJob.pProjs->GetSizeX()) * rJob.pProjs->GetSizeZ()),
      m_tProjs(rJob.pProjs->GetSizeZ()),
      m_tSlice((std::size_t(rJob.pTomoVol->GetVolume()->GetSizeX()) + 2) *
               (std::size_t(rJob.pTomoVol->GetVolume()->GetSizeZ()) + 2)),
      // Ray sums; measured rows; measured rows, and sums and working rows in one image. On the
      // host measured rows stay in the stack, but not where a batch has more lanes than rows.
      m_tImages(eKind == EJobKind::eIterative ? 2 : 1),
      m_tSums(eKind == EJobKind::eIterative ? rJob.uiProjIndex.size() * rJob.uiIterations : 0)
{
}

std::size_t CJobShape::GetRowBytes() const
{
    return (m_tStackRow * m_tImages + m_tSlice) * sizeof(float);
}

int CJobShape::GetBatch(int iRows) const
{
    return GetBackend()->GetBatchRows(std::max(iRows, 1), GetRowBytes());
}

std::size_t CJobShape::GetWorkerBytes(int iRows) const
{
    if (iRows == 0) return 0;
    // Tables exist twice while they are loaded; the sums are copied out and put in order.
    const std::size_t tWeights = 4 * m_tStackRow * sizeof(float);
    const std::size_t tRanges = 4 * std::size_t(iRows) * m_tProjs * sizeof(float);
    const std::size_t tBatch = GetBackend()->UsesHostMemory() ? GetRowBytes() * GetBatch(iRows) : 0;
    return tBatch + tWeights + tRanges + 4 * m_tSums * sizeof(double);
}
