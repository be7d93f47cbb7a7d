#include "gpulib/App/Project/ForProj.h"

#include "gpulib/App/Images/RowBatch.h"
#include "gpulib/Device/Backend.h"

void CForProjImpl::Configure(const RunImages& rImages, std::span<const unsigned int> uiIndices)
{
    m_aGForwardProj.SetImages(rImages);
    m_aWeightImpl.Configure(rImages, uiIndices);
    m_aSums = rImages.aSums;
    m_uiIndices = uiIndices;
}

bool CForProjImpl::DoIt(bool bWeight) const
{
    const SetRange aAll = {0, static_cast<int>(m_uiIndices.size())};
    return m_aGForwardProj.DoIt(aAll) && (!bWeight || m_aWeightImpl.WeightProjs(aAll));
}

bool CForProjImpl::ToHost(Util_Volume& rProjs, int iY, int iRows) const
{
    for (std::size_t i = 0, iEnd = 0; i < m_uiIndices.size(); i = iEnd)
    {
        // A run of neighbours in one copy: mostly the whole list.
        for (iEnd = i + 1; iEnd < m_uiIndices.size(); ++iEnd)
            if (m_uiIndices[iEnd] != m_uiIndices[iEnd - 1] + 1) break;
        const int iProj = static_cast<int>(m_uiIndices[i]);
        HostRows<float> aRows = GetBatch(rProjs, iY, iRows);
        aRows.pData += aRows.tStrideY * iProj;
        if (!GetBackend()->Download(m_aSums, aRows, 0, iProj, m_aSums.iWidth, int(iEnd - i)))
            return false;
    }
    return true;
}

bool CForProj::mRun()
{
    for (int y = 0; const int iRows = mRowsFrom(y); y += m_iBatch)
    {
        if (!mFit(iRows) || !mSetVolTex(y, iRows)) return false;
        mTellImages();
        mPrefetch(mGetVolume(), y + m_iBatch);
        if (!m_aForProjImpl.DoIt(m_rJob.aBox.has_value())) return false;
        if (!m_aForProjImpl.ToHost(*m_rJob.pProjs, m_aShare.iStartY + y, iRows)) return false;
    }
    return true;
}
