#include "gpulib/App/Align/Transform.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "Util/Util_Volume.h"
#include "gpulib/App/Job.h"
#include "gpulib/Device/DeviceError.h"

bool CTransform::DoIt(const JobShare& rShare)
{
    TakeDeviceError();  // what this thread noted before is not this job's reason
    if (rShare.iSizeY <= 0) return true;
    const int iY = m_rJob.pProjs->GetSizeY();
    if (m_rJob.uiRangeX.size() < 2 * std::size_t(iY))
        return DeviceFail("column ranges: %zu values given, %d rows", m_rJob.uiRangeX.size(), iY);
    const int iPiece = CTransformImpl::GetPieceRows(m_rJob.pProjs->GetSizeX(), rShare.iSizeY);
    if (!m_aImpl.Configure(m_rJob, iPiece)) return false;
    for (int r = 0; r < rShare.iSizeY; r += iPiece)
        if (!mPiece(rShare.iStartY, r, std::min(iPiece, rShare.iSizeY - r))) return false;
    return true;
}

/// Rows iFirst, ... of the band that begins at row iBandY.
bool CTransform::mPiece(int iBandY, int iFirst, int iRows)
{
    const int iY = iBandY + iFirst;
    if (!m_aImpl.DoIt(m_rJob.bLog, iY, iRows)) return false;
    const std::size_t tX = m_rJob.pProjs->GetSizeX(), tPixels = tX * iRows;
    std::vector<float> vfMiss(tPixels);
    const HostRows<float> aProj = {m_rJob.pProjs->GetSliceXY(m_rJob.iAProj) + tX * iY, tX, tPixels,
                                   1};
    const HostRows<float> aMiss = {vfMiss.data(), tX, tPixels, 1};
    if (!m_aImpl.GetProj().ToHost(aProj, iRows) || !m_aImpl.GetMiss().ToHost(aMiss, iRows))
        return false;
    mUpdateRangeX(vfMiss.data(), iBandY, iFirst, iRows);
    return true;
}

/// Sets the pairs of band rows [start of the band, rows of the band): a band that does not begin at
/// row 0 leaves its first rows as they were. Clients have always been served so.
void CTransform::mUpdateRangeX(const float* pfMiss, int iBandY, int iFirst, int iRows)
{
    const int iX = m_rJob.pProjs->GetSizeX();
    for (int r = std::max(iFirst, iBandY); r < iFirst + iRows; ++r)
    {
        const float* pfRow = pfMiss + std::size_t(iX) * (r - iFirst);
        const float *pfEnd = pfRow + iX, *pfFirst = std::find(pfRow, pfEnd, 0.0f);
        unsigned int* puiPair = &m_rJob.uiRangeX[2 * std::size_t(iBandY + r)];
        if (pfFirst != pfEnd)
            while (pfEnd[-1] != 0.0f) --pfEnd;
        const bool bNone = pfFirst == pfEnd;
        puiPair[0] = bNone ? 0 : static_cast<unsigned int>(pfFirst - pfRow);
        puiPair[1] = bNone ? 0 : static_cast<unsigned int>(pfEnd - pfRow);
    }
}
