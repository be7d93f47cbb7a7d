#pragma once

#include <span>

#include "gpulib/App/TransformImpl.h"

/// Replaces a band of rows of a projection of the stack by a measured projection, resampled and
/// rescaled, and keeps its table of valid columns.
class CTransform
{
public:
    void SetTranMatrix(std::span<const float, 6> fMatrix) { m_aImpl.SetTranMatrix(fMatrix); }
    void SetIntScale(std::span<const float, 6> fScale) { m_aImpl.SetIntScale(fScale); }
    /// Pairs (first valid column, one past the last) of the projection, [row][2]; borrowed.
    void SetRangeX(std::span<unsigned int> uiRangeX) { m_uiRangeX = uiRangeX; }
    void SetRangeY(int iStartY, int iSizeY);
    /// Borrowed for the life of this object.
    [[nodiscard]] bool SetMProj(const float* pfMProj, int iSizeX, int iSizeY);
    void SetAProj(float* pfAProj, int iSizeX, int iSizeY);  ///< borrowed, changed in place

    [[nodiscard]] bool DoIt(bool bLog);

private:
    [[nodiscard]] bool mPiece(bool bLog, int iFirst, int iRows);
    void mUpdateRangeX(const float* pfMiss, int iFirst, int iRows);

    CTransformImpl m_aImpl;
    std::span<unsigned int> m_uiRangeX;
    float* m_pfAProj = nullptr;
    int m_iAProjSize[2] = {0, 0};
    int m_iRangeY[2] = {0, 0};  // first row of the band, rows
};
