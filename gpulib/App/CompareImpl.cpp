#include "gpulib/App/CompareImpl.h"

#include <algorithm>
#include <cstddef>

void CCompareImpl::SetRangeY(int iStartY, int iSizeY)
{
    m_iRangeY[0] = iStartY;
    m_iRangeY[1] = iSizeY;
}

void CCompareImpl::SetAProj(const float* pfAProj, int iSizeX, int iSizeY)
{
    m_pfAProj = pfAProj;
    m_iAProjSize[0] = iSizeX;
    m_iAProjSize[1] = iSizeY;
    m_aTransformImpl.SetAProjSize(iSizeX, iSizeY);
}

bool CCompareImpl::DoIt(bool bLog, CompareTotals& rTotals)
{
    CompareTotals aTotals = {};
    const bool bDone = m_iRangeY[1] <= 0 || mSumBand(bLog, aTotals);
    m_aAlignedProj.Free();
    m_aTransformImpl.ClearDevice();
    if (bDone) rTotals = aTotals;
    return bDone;
}

bool CCompareImpl::mSumBand(bool bLog, CompareTotals& rTotals)
{
    const int iX = m_iAProjSize[0], iSizeY = m_iRangeY[1];
    const int iPiece = CTransformImpl::GetPieceRows(iX, iSizeY);
    GCompare aCompare;
    if (!m_aTransformImpl.AllocMemory(iPiece) || !aCompare.AllocMemory(iX, iSizeY)) return false;
    aCompare.BindTransedProj(m_aTransformImpl.GetProj().GetImage());
    aCompare.BindMissingData(m_aTransformImpl.GetMiss().GetImage());
    for (int r = 0; r < iSizeY; r += iPiece)
        if (!mPiece(aCompare, bLog, r, std::min(iPiece, iSizeY - r))) return false;
    return aCompare.GetTotals(rTotals);
}

/// Rows iFirst, ... of the band.
bool CCompareImpl::mPiece(GCompare& rCompare, bool bLog, int iFirst, int iRows)
{
    const int iX = m_iAProjSize[0], iY = m_iRangeY[0] + iFirst;
    if (!m_aTransformImpl.DoIt(bLog, iY, iRows) ||
        !m_aAlignedProj.CreateLent(m_pfAProj + std::size_t(iX) * iY, iX, iRows))
        return false;
    rCompare.BindAlignedProj(m_aAlignedProj.GetImage());
    return rCompare.DoIt(iFirst, iRows);
}
