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
