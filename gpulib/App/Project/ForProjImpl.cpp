#include "gpulib/App/Project/ForProjImpl.h"

#include "gpulib/App/Images/RowBatch.h"
#include "gpulib/App/Images/Textures.h"
#include "gpulib/Device/Backend.h"

void CForProjImpl::SetTextures(const CTextures& rTextures)
{
    m_aGForwardProj.SetProjIndexArray(rTextures.GetProjIndexArray());
    m_aGForwardProj.SetCosSinArray(rTextures.GetAnglesArray());
    m_aGForwardProj.SetVolArray(rTextures.GetVolArray());
    m_aWeightImpl.SetTextures(rTextures);
}

void CForProjImpl::SetProjIndices(std::span<const unsigned int> uiIndices)
{
    m_uiIndices = uiIndices;
    m_aWeightImpl.SetProjIndices(uiIndices);
}

bool CForProjImpl::AllocMemory(int iProjX, int iProjs, int iLanes)
{
    m_aGForwardProj.SetProjX(iProjX);
    m_aWeightImpl.SetProjX(iProjX);
    m_aSums.SetLanes(iLanes);
    return m_aSums.Create(iProjX, iProjs);
}

void CForProjImpl::SetSetRange(const int* piRange)
{
    m_aGForwardProj.SetSetRange(piRange[0], piRange[1]);
    m_aWeightImpl.SetSetRange(piRange[0], piRange[1]);
}

bool CForProjImpl::DoIt(bool bWeight)
{
    return m_aGForwardProj.DoIt(m_aSums.GetImage()) &&
           (!bWeight || m_aWeightImpl.WeightProjs(m_aSums.GetImage()));
}

bool CForProjImpl::ToHost(Util_Volume& rProjs, int iY, int iRows) const
{
    const DeviceImage& rSums = m_aSums.GetImage();
    for (std::size_t i = 0, iEnd = 0; i < m_uiIndices.size(); i = iEnd)
    {
        // A run of neighbours in one copy: mostly the whole list.
        for (iEnd = i + 1; iEnd < m_uiIndices.size(); ++iEnd)
            if (m_uiIndices[iEnd] != m_uiIndices[iEnd - 1] + 1) break;
        const int iProj = static_cast<int>(m_uiIndices[i]);
        HostRows<float> aRows = GetBatch(rProjs, iY, iRows);
        aRows.pData += aRows.tStrideY * iProj;
        if (!GetBackend()->Download(rSums, aRows, 0, iProj, rSums.iWidth, int(iEnd - i)))
            return false;
    }
    return true;
}
