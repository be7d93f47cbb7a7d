#include "gpulib/App/Project/ForProj.h"

#include <algorithm>

#include "gpulib/App/Job.h"

bool CForProj::DoIt(const JobShare& rShare)
{
    if (!mSetBand(rShare)) return false;
    if (m_iSizeY == 0) return true;
    if (!mPrepare()) return false;
    for (int y = m_iStartY; y < m_iStartY + m_iSizeY; y += m_iBatch)
    {
        const int iRows = std::min(m_iBatch, m_iStartY + m_iSizeY - y);
        if (!mSetVolTex(y, iRows) || !m_aForProjImpl.DoIt(m_rJob.aBox.has_value())) return false;
        mPrefetchVolume(y - m_iStartY + m_iBatch);
        if (!m_aForProjImpl.ToHost(*m_rJob.pProjs, y, iRows)) return false;
    }
    return true;
}

bool CForProj::mPrepare()
{
    mCalcBatch(EJobKind::eForProj);
    mCalcSetSize();
    return mCreateAnglesTex() && mCreateProjIndexTex() && (!m_rJob.aBox || mGenWeights(true)) &&
           mFitBatch([this] { return mCreateVolumeTex() && mConfigForProj(); });
}

bool CForProj::mConfigForProj()
{
    m_aForProjImpl.SetTextures(m_aTextures);
    m_aForProjImpl.SetProjIndices(m_rJob.uiProjIndex);
    m_aForProjImpl.SetVolSize(mGetVolX(), mGetVolZ());
    m_aForProjImpl.SetSetRange(m_aSetSize.GetFullRange());
    return m_aForProjImpl.AllocMemory(mGetProjX(), mGetProjs(), m_iBatch);
}
