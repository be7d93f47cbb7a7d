#pragma once

#include "gpulib/App/Images/Textures.h"
#include "gpulib/Device/GTransform.h"

struct AlignJob;

/// Resamples a measured projection onto rows of a projection of the stack, on the device.
///
/// Rows are made in pieces small enough for the caches: see GetPieceRows().
class CTransformImpl
{
public:
    /// Rows of a piece of a band of iSizeY rows of iSizeX columns.
    static int GetPieceRows(int iSizeX, int iSizeY);
    /// \param rJob   its measured projection is borrowed until ClearDevice()
    /// \param iRows  most rows of a piece
    [[nodiscard]] bool Configure(const AlignJob& rJob, int iRows);
    /// Makes rows iStartY, iStartY + 1, ... (iSizeY of them).
    [[nodiscard]] bool DoIt(bool bLog, int iStartY, int iSizeY);
    const CPitchedPtr2D& GetProj() const { return m_aProj; }
    const CPitchedPtr2D& GetMiss() const { return m_aMiss; }  ///< 1: missing, else 0
    void ClearDevice();

private:
    CPitchedPtr2D m_aProj, m_aMiss;  // [row][x]
    CMProjTex m_aMProjTex;
    GTransform m_aGTransform;
};
