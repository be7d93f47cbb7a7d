#include "gpulib/App/Project/BackProj.h"

#include <algorithm>

#include "gpulib/App/Job.h"
#include "gpulib/Device/Backend.h"

bool CBackProj::DoIt(const JobShare& rShare)
{
    if (!mSetBand(rShare)) return false;
    if (m_iSizeY == 0) return true;
    if (!mPrepare()) return false;
    for (int y = 0; y < m_iSizeY; y += m_iBatch)
        if (!mDoBatch(y, std::min(m_iBatch, m_iSizeY - y))) return false;
    return GetBackend()->FinishDownload();
}

bool CBackProj::mPrepare()
{
    mPopulateBand();
    mCalcBatch(EJobKind::eBackProj);
    mCalcSetSize();
    if (!mCreateAnglesTex() || !mCreateRangeTex() || !mCreateProjIndexTex() ||
        (m_rJob.aBox && !mGenWeights(true)) ||
        !mFitBatch([this] { return mCreateProjsTex(true) && mCreateVolumeTex(); }))
        return false;
    mConfigBackProj();
    mConfigDiffProj();
    return true;
}

void CBackProj::mConfigBackProj()
{
    m_aBackProjImpl.SetTextures(m_aTextures);
    m_aBackProjImpl.SetVolSize(mGetVolX(), mGetVolZ());
    m_aBackProjImpl.SetProjX(mGetProjX());
    m_aBackProjImpl.SetSetRange(m_aSetSize.GetFullRange());
    m_aBackProjImpl.SetRelax(1.0f);
}

void CBackProj::mConfigDiffProj()
{
    m_aDiffProjImpl.SetTextures(m_aTextures);
    m_aDiffProjImpl.SetProjIndices(m_rJob.uiProjIndex);
    m_aDiffProjImpl.SetProjSize(mGetProjX(), mGetProjs());
    m_aDiffProjImpl.SetSetRange(m_aSetSize.GetFullRange());
}

bool CBackProj::mDoBatch(int iY, int iRows)
{
    // Measured and working rows share one image: what is loaded is what is back projected.
    if (!mSetProjTex(m_iStartY + iY, iRows) || !mSetVolTex(m_iStartY + iY, iRows) ||
        (m_rJob.aBox && !(m_aDiffProjImpl.WeightRef() && m_aDiffProjImpl.WeightProjs())) ||
        !m_aBackProjImpl.DoIt(iY, iRows) || !GetBackend()->FinishDownload())
        return false;
    mPrefetchProjs(iY + m_iBatch);
    mPrefetchVolume(iY + m_iBatch);
    return m_aBackProjImpl.StartToHost(mGetVolume(), m_iStartY + iY, iRows);
}
