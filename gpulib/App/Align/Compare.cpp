#include "gpulib/App/Align/Compare.h"

#include <algorithm>
#include <cstddef>

#include "Util/Util_Volume.h"
#include "gpulib/App/Job.h"
#include "gpulib/Device/DeviceError.h"

bool CCompareImpl::DoIt(const AlignJob& rJob, const JobShare& rShare, CompareTotals& rTotals)
{
    TakeDeviceError();  // what this thread noted before is not this job's reason
    CompareTotals aTotals = {};
    const bool bDone = rShare.iSizeY <= 0 || mSumBand(rJob, rShare, aTotals);
    m_aAlignedProj.Free();
    m_aTransformImpl.ClearDevice();
    if (bDone) rTotals = aTotals;
    return bDone;
}

bool CCompareImpl::mSumBand(const AlignJob& rJob, const JobShare& rShare, CompareTotals& rTotals)
{
    const int iX = rJob.pProjs->GetSizeX(), iSizeY = rShare.iSizeY;
    const int iPiece = CTransformImpl::GetPieceRows(iX, iSizeY);
    GCompare aCompare;
    if (!m_aTransformImpl.Configure(rJob, iPiece) || !aCompare.AllocMemory(iX, iSizeY))
        return false;
    aCompare.BindTransedProj(m_aTransformImpl.GetProj().GetImage());
    aCompare.BindMissingData(m_aTransformImpl.GetMiss().GetImage());
    for (int r = 0; r < iSizeY; r += iPiece)
        if (!mPiece(rJob, rShare.iStartY, r, std::min(iPiece, iSizeY - r), aCompare)) return false;
    return aCompare.GetTotals(rTotals);
}

/// Rows iFirst, ... of the band that begins at row iBandY.
bool CCompareImpl::mPiece(const AlignJob& rJob, int iBandY, int iFirst, int iRows,
                          GCompare& rCompare)
{
    const int iX = rJob.pProjs->GetSizeX(), iY = iBandY + iFirst;
    const float* pfAProj = rJob.pProjs->GetSliceXY(rJob.iAProj);
    if (!m_aTransformImpl.DoIt(rJob.bLog, iY, iRows) ||
        !m_aAlignedProj.CreateLent(pfAProj + std::size_t(iX) * iY, iX, iRows))
        return false;
    rCompare.BindAlignedProj(m_aAlignedProj.GetImage());
    return rCompare.DoIt(iFirst, iRows);
}
