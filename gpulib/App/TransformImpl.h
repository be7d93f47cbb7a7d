#pragma once

#include <span>

#include "gpulib/App/MProjTex.h"
#include "gpulib/Device/GTransform.h"
#include "gpulib/Device/PitchedPtr2D.h"

/// Resamples a measured projection onto rows of a projection of the stack, on the device.
///
/// Rows are made in pieces small enough for the caches: see GetPieceRows().
class CTransformImpl
{
public:
    void SetTranMatrix(std::span<const float, 6> fMatrix) { m_aGTransform.SetMatrix(fMatrix); }
    void SetIntScale(std::span<const float, 6> fScale) { m_aGTransform.SetIntScale(fScale); }
    /// \param pfMProj  [y][x], borrowed until ClearDevice()
    [[nodiscard]] bool SetMProj(const float* pfMProj, int iSizeX, int iSizeY);
    void SetAProjSize(int iSizeX, int iSizeY);

    /// Rows of a piece of a band of iSizeY rows of iSizeX columns.
    static int GetPieceRows(int iSizeX, int iSizeY);
    [[nodiscard]] bool AllocMemory(int iRows);  ///< most rows of a piece
    /// Makes rows iStartY, iStartY + 1, ... (iSizeY of them).
    [[nodiscard]] bool DoIt(bool bLog, int iStartY, int iSizeY);
    const CPitchedPtr2D& GetProj() const { return m_aProj; }
    const CPitchedPtr2D& GetMiss() const { return m_aMiss; }  ///< 1: missing, else 0
    void ClearDevice();

private:
    CPitchedPtr2D m_aProj, m_aMiss;  // [row][x]
    CMProjTex m_aMProjTex;
    GTransform m_aGTransform;
    int m_iAProjX = 0;
};
