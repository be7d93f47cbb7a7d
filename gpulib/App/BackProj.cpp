#include "gpulib/App/BackProj.h"

#include <algorithm>

#include "gpulib/App/JobShape.h"
#include "gpulib/Device/Backend.h"

void CBackProj::SetPreweightBox(const float* pfOrig, const float* pfDim)
{
    CReconBase::SetPreweightBox(pfOrig, pfDim);
    m_bWeight = pfOrig && pfDim;
}

bool CBackProj::DoIt(int iStartY, int iSizeY)
{
    if (!mSetBand(iStartY, iSizeY)) return false;
    if (iSizeY == 0) return true;
    if (!mPrepare()) return false;
    for (int y = 0; y < iSizeY; y += m_iBatch)
        if (!mDoBatch(y, std::min(m_iBatch, iSizeY - y))) return false;
    return GetBackend()->FinishDownload();
}

bool CBackProj::mPrepare()
{
    mPopulateBand();
    mCalcBatch(g_iBackProjImages);
    mCalcSetSize();
    if (!mCreateAnglesTex() || !mCreateRangeTex() || !mCreateProjIndexTex() ||
        (m_bWeight && !mGenWeights(true)) ||
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
    m_aBackProjImpl.SetSetRange(mGetSetRange(0));
    m_aBackProjImpl.SetRelax(1.0f);
}

void CBackProj::mConfigDiffProj()
{
    m_aDiffProjImpl.SetTextures(m_aTextures);
    m_aDiffProjImpl.SetProjIndices(m_uiProjIndices);
    m_aDiffProjImpl.SetProjSize(mGetProjX(), mGetProjs());
    m_aDiffProjImpl.SetSetRange(mGetSetRange(0));
}

bool CBackProj::mDoBatch(int iY, int iRows)
{
    // Measured and working rows share one image: what is loaded is what is back projected.
    if (!mSetProjTex(m_iStartY + iY, iRows) || !mSetVolTex(m_iStartY + iY, iRows) ||
        (m_bWeight && !(m_aDiffProjImpl.WeightRef() && m_aDiffProjImpl.WeightProjs())) ||
        !m_aBackProjImpl.DoIt(iY, iRows) || !GetBackend()->FinishDownload())
        return false;
    mPrefetchProjs(iY + m_iBatch);
    mPrefetchVolume(iY + m_iBatch);
    return m_aBackProjImpl.StartToHost(mGetVolume(), m_iStartY + iY, iRows);
}
