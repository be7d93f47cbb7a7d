#include "gpulib/App/ReconBase.h"

#include <algorithm>
#include <utility>

#include "gpulib/App/Images/RowBatch.h"
#include "gpulib/App/Weights/CalcWeights.h"
#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"

bool CReconBase::DoIt(const JobShare& rShare)
{
    TakeDeviceError();  // what this thread noted before is not this job's reason
    m_aShare = rShare;
    m_bZero = m_rJob.bZero;
    if (!mCheckInputs()) return false;
    if (rShare.iSizeY > 0 && (!mCreateTables() || !mPrepare())) return false;
    return mRun();
}

/// What the device seam cannot see: it knows images, not the host's arrays.
bool CReconBase::mCheckInputs() const
{
    const int iY = std::min(m_rJob.pProjs->GetSizeY(), mGetVolume().GetSizeY());
    if (m_aShare.iStartY < 0 || m_aShare.iSizeY < 0 || m_aShare.iStartY > iY - m_aShare.iSizeY)
        return DeviceFail("%d rows from row %d of %d", m_aShare.iSizeY, m_aShare.iStartY, iY);
    const std::size_t tFactors = std::size_t(m_rJob.uiNumSets) * m_rJob.uiIterations;
    if (tFactors == 0)
        return DeviceFail("%u sets, %u iterations", m_rJob.uiNumSets, m_rJob.uiIterations);
    return m_rJob.fRelax.empty() || m_rJob.fRelax.size() >= tFactors ||
           DeviceFail("relaxation factors: %zu given, %zu needed", m_rJob.fRelax.size(), tFactors);
}

bool CReconBase::mPrepare()
{
    m_iBatch = CJobShape(m_rJob, m_eKind).GetBatch(m_aShare.iSizeY);
    // Other programs may hold memory of the device: what does not fit is tried with half the rows.
    for (; !mFit(m_iBatch); m_iBatch = (m_iBatch + 1) / 2)
    {
        if (m_iBatch == 1) return false;
        TakeDeviceError();
    }
    return true;
}

/// What is the same for all batches.
bool CReconBase::mCreateTables()
{
    const bool bRanges = m_eKind != EJobKind::eForProj;
    const bool bWeights = m_eKind == EJobKind::eIterative || m_rJob.aBox;
    return mCreateAnglesTex() && (!bRanges || mCreateRangeTex()) &&
           m_aTextures.m_aProjIndexTex.Create(m_rJob.uiProjIndex) && (!bWeights || mGenWeights());
}

/// On the host, half the lanes take 0.6 times as long: a short batch at the end of a band has
/// images of its own.
bool CReconBase::mFit(int iRows)
{
    const bool bShort = iRows <= m_iBatch / 2 && GetBackend()->UsesHostMemory();
    const int iImageRows = bShort ? iRows : m_iBatch;
    if (iImageRows == m_iImageRows) return true;
    m_iImageRows = 0;
    if (!GetBackend()->FinishDownload() || !mCreateBatch(iImageRows)) return false;
    m_iImageRows = iImageRows;
    return true;
}

bool CReconBase::mCreateBatch(int iRows)
{
    const int iProjX = mGetProjX(), iProjs = mGetProjs();
    const bool bProjs = m_eKind != EJobKind::eForProj, bSums = m_eKind != EJobKind::eBackProj;
    const EMeasured eMeasured = !bSums                           ? EMeasured::eWorking
                                : GetBackend()->UsesHostMemory() ? EMeasured::eStack
                                                                 : EMeasured::eImage;
    const auto CreateSums = [&]
    {
        // What is compared with the measured rows becomes the working rows.
        CPitchedPtr2D& rSums = m_aTextures.m_aSums;
        return bProjs ? rSums.CreateShared(m_aTextures.GetProjsArray())
                      : rSums.Create(iProjX, iProjs);
    };
    m_aTextures.m_aSums.SetLanes(iRows);
    return (!bProjs || m_aTextures.m_aProjsTex.Create(iProjX, iProjs, iRows, eMeasured)) &&
           m_aTextures.m_aVolTex.Create(mGetVolX(), mGetVolZ(), iRows) && (!bSums || CreateSums());
}

/// The last slices return to a volume that takes more memory as they come.
void CReconBase::mFreeRows()
{
    m_aTextures.m_aSums.Free();
    m_aTextures.m_aProjsTex.ClearDevice();
    m_iImageRows = 0;
}

bool CReconBase::mCreateAnglesTex()
{
    return m_aTextures.m_aAnglesTex.Create(mGetProjs()) &&
           m_aTextures.m_aAnglesTex.SetData(m_rJob.fAngles);
}

bool CReconBase::mCreateRangeTex()
{
    return m_aTextures.m_aRangeTex.Create(m_aShare.iSizeY, mGetProjs()) &&
           m_aTextures.m_aRangeTex.SetData(m_rJob.uiRangeX, m_rJob.pProjs->GetSizeY(),
                                           m_aShare.iStartY);
}

bool CReconBase::mGenWeights()
{
    CCalcWeights aWeights;
    aWeights.SetVolSize(mGetVolX(), mGetVolZ());
    aWeights.SetProjs(mGetProjX(), mGetProjs(), m_rJob.fAngles);
    aWeights.SetTextures(&m_aTextures);
    if (m_rJob.aBox) aWeights.SetWeightBox(m_rJob.aBox->afOrig.data(), m_rJob.aBox->afDim.data());
    return aWeights.DoIt();
}

bool CReconBase::mForEachBatch(const std::function<bool(int iY, int iRows, bool bZero)>& fWork)
{
    for (int y = 0; const int iRows = mRowsFrom(y); y += m_iBatch)
    {
        bool bZero = false;
        if (!mFit(iRows) || !mSetProjTex(y, iRows) || !mMoveVolume(y, iRows, bZero)) return false;
        mTellImages();
        mPrefetch(*m_rJob.pProjs, y + m_iBatch);
        if (!bZero) mPrefetch(mGetVolume(), y + m_iBatch);  // else the next slices will be 0, too
        if (!fWork(y, iRows, bZero) || !GetBackend()->FinishDownload()) return false;
        if (mRowsFrom(y + m_iBatch) == 0 && GetBackend()->UsesHostMemory()) mFreeRows();
        if (!m_aTextures.m_aVolTex.StartMoveOut(
                GetBatch(mGetVolume(), m_aShare.iStartY + y, iRows)))
            return false;
    }
    m_bZero = false;
    return m_aShare.iSizeY == 0 || GetBackend()->FinishDownload();
}

/// Memory that is not there is not read: it would become one shared page of zeros, and each page of
/// it that is written later would interrupt all other workers.
bool CReconBase::mMoveVolume(int iY, int iRows, bool& rZero)
{
    const int iStartY = m_aShare.iStartY + iY;
    rZero = m_bZero || IsZero(mGetVolume(), iStartY, iRows);
    const bool bClear = m_bZero || (rZero && !GetBackend()->UsesHostMemory());
    if (bClear) return m_aTextures.m_aVolTex.SetZero();
    return m_aTextures.m_aVolTex.MoveIn(GetBatch(mGetVolume(), iStartY, iRows));
}

int CReconBase::mRowsFrom(int iY) const
{
    return std::clamp(m_aShare.iSizeY - iY, 0, m_iBatch);
}

bool CReconBase::mSetProjTex(int iY, int iRows)
{
    return m_aTextures.m_aProjsTex.SetRawData(
        GetBatch(*m_rJob.pProjs, m_aShare.iStartY + iY, iRows));
}

bool CReconBase::mSetVolTex(int iY, int iRows)
{
    return m_aTextures.m_aVolTex.SetData(
        GetBatch(std::as_const(mGetVolume()), m_aShare.iStartY + iY, iRows));
}

void CReconBase::mPrefetch(const Util_Volume& rImages, int iY) const
{
    if (const int iRows = mRowsFrom(iY))
        GetBackend()->Prefetch(GetBatch(rImages, m_aShare.iStartY + iY, iRows), rImages.GetSizeX(),
                               rImages.GetSizeZ());
}

void CReconBase::mTellImages()
{
    mSetImages({.iVolX = mGetVolX(),
                .iVolZ = mGetVolZ(),
                .iProjX = mGetProjX(),
                .aVol = m_aTextures.GetVolArray(),
                .aRawProjs = m_aTextures.GetRawProjsArray(),
                .aProjs = m_aTextures.GetProjsArray(),
                .aSums = m_aTextures.m_aSums.GetImage(),
                .aCosSin = m_aTextures.GetAnglesArray(),
                .aProjIndex = m_aTextures.GetProjIndexArray(),
                .aRangeX = m_aTextures.GetRangeArray(),
                .aPreWeight = m_aTextures.GetPreWeightArray(),
                .aProjWeight = m_aTextures.GetProjWeightArray()});
}
