#pragma once

#include <cstddef>

struct ReconJob;

enum class EJobKind
{
    eForProj,   ///< reprojection
    eBackProj,  ///< plain back projection
    eIterative  ///< SART, EM
};

/// How much memory the workers of a job need.
class CJobShape
{
public:
    CJobShape(const ReconJob& rJob, EJobKind eKind);

    std::size_t GetRowBytes() const;  ///< what one row of a batch takes on the device
    int GetBatch(int iRows) const;    ///< rows of a batch in a band of iRows
    std::size_t GetSums() const { return m_tSums; }  ///< R-factor sums: list length x iterations
    /// Of the host, copies of tables included, for one worker with a band of iRows.
    std::size_t GetWorkerBytes(int iRows) const;

private:
    std::size_t m_tStackRow;  // values of one row of the stack
    std::size_t m_tProjs;
    std::size_t m_tSlice;   // values of one slice on the device
    std::size_t m_tImages;  // of projection rows, besides the slices
    std::size_t m_tSums;
};
