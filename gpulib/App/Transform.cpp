#include "gpulib/App/Transform.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "gpulib/Device/DeviceError.h"

void CTransform::SetRangeY(int iStartY, int iSizeY)
{
    m_iRangeY[0] = iStartY;
    m_iRangeY[1] = iSizeY;
}

bool CTransform::SetMProj(const float* pfMProj, int iSizeX, int iSizeY)
{
    return m_aImpl.SetMProj(pfMProj, iSizeX, iSizeY);
}

void CTransform::SetAProj(float* pfAProj, int iSizeX, int iSizeY)
{
    m_pfAProj = pfAProj;
    m_iAProjSize[0] = iSizeX;
    m_iAProjSize[1] = iSizeY;
    m_aImpl.SetAProjSize(iSizeX, iSizeY);
}

bool CTransform::DoIt(bool bLog)
{
    const int iSizeY = m_iRangeY[1];
    if (iSizeY <= 0) return true;
    if (m_uiRangeX.size() < 2 * std::size_t(m_iAProjSize[1]))
        return DeviceFail("column ranges: %zu values given, %d rows", m_uiRangeX.size(),
                          m_iAProjSize[1]);
    const int iPiece = CTransformImpl::GetPieceRows(m_iAProjSize[0], iSizeY);
    if (!m_aImpl.AllocMemory(iPiece)) return false;
    for (int r = 0; r < iSizeY; r += iPiece)
        if (!mPiece(bLog, r, std::min(iPiece, iSizeY - r))) return false;
    return true;
}

/// Rows iFirst, ... of the band.
bool CTransform::mPiece(bool bLog, int iFirst, int iRows)
{
    const int iX = m_iAProjSize[0], iY = m_iRangeY[0] + iFirst;
    if (!m_aImpl.DoIt(bLog, iY, iRows)) return false;
    const std::size_t tPixels = std::size_t(iX) * iRows;
    std::vector<float> vfMiss(tPixels);
    const HostRows<float> aProj = {m_pfAProj + std::size_t(iX) * iY, std::size_t(iX), tPixels, 1};
    const HostRows<float> aMiss = {vfMiss.data(), std::size_t(iX), tPixels, 1};
    if (!m_aImpl.GetProj().ToHost(aProj, iRows) || !m_aImpl.GetMiss().ToHost(aMiss, iRows))
        return false;
    mUpdateRangeX(vfMiss.data(), iFirst, iRows);
    return true;
}

/// Sets the pairs of band rows [start of the band, rows of the band): a band that does not begin at
/// row 0 leaves its first rows as they were. Clients have always been served so.
void CTransform::mUpdateRangeX(const float* pfMiss, int iFirst, int iRows)
{
    const int iX = m_iAProjSize[0];
    for (int r = std::max(iFirst, m_iRangeY[0]); r < iFirst + iRows; ++r)
    {
        const float* pfRow = pfMiss + std::size_t(iX) * (r - iFirst);
        const float *pfEnd = pfRow + iX, *pfFirst = std::find(pfRow, pfEnd, 0.0f);
        unsigned int* puiPair = &m_uiRangeX[2 * std::size_t(m_iRangeY[0] + r)];
        if (pfFirst != pfEnd)
            while (pfEnd[-1] != 0.0f) --pfEnd;
        const bool bNone = pfFirst == pfEnd;
        puiPair[0] = bNone ? 0 : static_cast<unsigned int>(pfFirst - pfRow);
        puiPair[1] = bNone ? 0 : static_cast<unsigned int>(pfEnd - pfRow);
    }
}
