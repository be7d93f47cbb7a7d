#pragma once

#include "gpulib/App/Align/TransformImpl.h"

struct JobShare;

/// Replaces a band of rows of a projection of the stack by a measured projection, resampled and
/// rescaled, and keeps its table of valid columns.
class CTransform
{
public:
    /// \param rJob  borrowed for the life of this object, with all that it names
    explicit CTransform(const AlignJob& rJob) : m_rJob(rJob) {}
    [[nodiscard]] bool DoIt(const JobShare& rShare);

private:
    [[nodiscard]] bool mPiece(int iBandY, int iFirst, int iRows);
    void mUpdateRangeX(const float* pfMiss, int iBandY, int iFirst, int iRows);

    const AlignJob& m_rJob;
    CTransformImpl m_aImpl;
};
