#include "gpulib/App/ForProj.h"

#include <algorithm>

#include "gpulib/App/JobShape.h"

void CForProj::SetPreweightBox(const float* pfOrig, const float* pfDim)
{
    CReconBase::SetPreweightBox(pfOrig, pfDim);
    m_bWeight = pfOrig && pfDim;
}

bool CForProj::DoIt(int iStartY, int iSizeY)
{
    if (!mSetBand(iStartY, iSizeY)) return false;
    if (iSizeY == 0) return true;
    if (!mPrepare()) return false;
    for (int y = iStartY; y < iStartY + iSizeY; y += m_iBatch)
    {
        const int iRows = std::min(m_iBatch, iStartY + iSizeY - y);
        if (!mSetVolTex(y, iRows) || !m_aForProjImpl.DoIt(m_bWeight)) return false;
        mPrefetchVolume(y - iStartY + m_iBatch);
        if (!m_aForProjImpl.ToHost(*m_pProjs, y, iRows)) return false;
    }
    return true;
}

bool CForProj::mPrepare()
{
    mCalcBatch(g_iForProjImages);
    mCalcSetSize();
    return mCreateAnglesTex() && mCreateProjIndexTex() && (!m_bWeight || mGenWeights(true)) &&
           mFitBatch([this] { return mCreateVolumeTex() && mConfigForProj(); });
}

bool CForProj::mConfigForProj()
{
    m_aForProjImpl.SetTextures(m_aTextures);
    m_aForProjImpl.SetProjIndices(m_uiProjIndices);
    m_aForProjImpl.SetVolSize(mGetVolX(), mGetVolZ());
    m_aForProjImpl.SetSetRange(mGetSetRange(0));
    return m_aForProjImpl.AllocMemory(mGetProjX(), mGetProjs(), m_iBatch);
}
