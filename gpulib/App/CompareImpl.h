#pragma once

#include <span>

#include "gpulib/App/TransformImpl.h"
#include "gpulib/Device/DeviceArray2D.h"
#include "gpulib/Device/GCompare.h"

/// Transforms rows of a measured projection and sums them against rows of the stack; images stay on
/// the device.
class CCompareImpl
{
public:
    CTransformImpl& GetTransform() { return m_aTransformImpl; }
    void SetRangeY(int iStartY, int iSizeY);
    void SetAProj(const float* pfAProj, int iSizeX, int iSizeY);  ///< [y][x], borrowed

    /// Sums over the band; rTotals is changed on success only. Device memory is freed either way.
    [[nodiscard]] bool DoIt(bool bLog, CompareTotals& rTotals);

private:
    [[nodiscard]] bool mSumBand(bool bLog, CompareTotals& rTotals);
    [[nodiscard]] bool mPiece(GCompare& rCompare, bool bLog, int iFirst, int iRows);

    CTransformImpl m_aTransformImpl;
    CDeviceArray2D m_aAlignedProj;  // [row][x], a piece of the band
    const float* m_pfAProj = nullptr;
    int m_iAProjSize[2] = {0, 0};
    int m_iRangeY[2] = {0, 0};
};
