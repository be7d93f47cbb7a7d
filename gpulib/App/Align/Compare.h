#pragma once

#include "gpulib/App/Align/TransformImpl.h"
#include "gpulib/Device/DeviceArray2D.h"
#include "gpulib/Device/GCompare.h"

struct JobShare;

/// Transforms rows of a measured projection and sums them against rows of the stack; images stay on
/// the device.
class CCompareImpl
{
public:
    /// Sums over the band; rTotals is changed on success only. Device memory is freed either way.
    [[nodiscard]] bool DoIt(const AlignJob& rJob, const JobShare& rShare, CompareTotals& rTotals);

private:
    [[nodiscard]] bool mSumBand(const AlignJob& rJob, const JobShare& rShare,
                                CompareTotals& rTotals);
    [[nodiscard]] bool mPiece(const AlignJob& rJob, int iBandY, int iFirst, int iRows,
                              GCompare& rCompare);

    CTransformImpl m_aTransformImpl;
    CDeviceArray2D m_aAlignedProj;  // [row][x], a piece of the band
};

/// Tells how well a measured projection, resampled and rescaled, matches a band of rows of a
/// projection of the stack: nine sums over the pixels that it covers.
class CCompare
{
public:
    /// \param rJob  borrowed for the life of this object, with all that it names
    explicit CCompare(const AlignJob& rJob) : m_rJob(rJob) {}
    /// All sums are 0 for a band without rows.
    [[nodiscard]] bool DoIt(const JobShare& rShare)
    {
        return m_aImpl.DoIt(m_rJob, rShare, m_aTotals);
    }
    const CompareTotals& GetTotals() const { return m_aTotals; }

private:
    const AlignJob& m_rJob;
    CCompareImpl m_aImpl;
    CompareTotals m_aTotals = {};
};
