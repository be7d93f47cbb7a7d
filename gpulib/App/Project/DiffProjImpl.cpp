#include "gpulib/App/Project/DiffProjImpl.h"

#include "gpulib/App/Images/Textures.h"

void CDiffProjImpl::SetTextures(CTextures& rTextures)
{
    m_pTextures = &rTextures;
    m_aGForwardProj.SetProjIndexArray(rTextures.GetProjIndexArray());
    m_aGForwardProj.SetCosSinArray(rTextures.GetAnglesArray());
    m_aGForwardProj.SetVolArray(rTextures.GetVolArray());
    m_aGForwardProj.SetRawProjsArray(rTextures.GetRawProjsArray());
    m_aWeightImpl.SetTextures(rTextures);
}

void CDiffProjImpl::SetProjIndices(std::span<const unsigned int> uiIndices)
{
    m_iListSize = static_cast<int>(uiIndices.size());
    m_aWeightImpl.SetProjIndices(uiIndices);
}

void CDiffProjImpl::SetProjSize(int iProjX, int iProjs)
{
    m_iProjX = iProjX;
    m_iProjs = iProjs;
    m_aGForwardProj.SetProjX(iProjX);
    m_aWeightImpl.SetProjX(iProjX);
}

bool CDiffProjImpl::AllocMemory(int iLanes)
{
    NotifyVolChanged();
    m_aSums.SetLanes(iLanes);
    return m_aSums.Create(m_iProjX, m_iProjs);
}

void CDiffProjImpl::SetSetRange(const int* piRange)
{
    m_aiSetRange[0] = piRange[0];
    m_aiSetRange[1] = piRange[1];
}

bool CDiffProjImpl::NotifyVolZero()
{
    m_iSumsFirst = 0;
    m_iSumsEnd = m_iListSize;
    return m_aSums.Init(0);
}

bool CDiffProjImpl::DoDif()
{
    return mCalcSums() && m_aGForwardProj.DoDiff(m_aSums.GetImage(), m_pTextures->GetProjsArray());
}

bool CDiffProjImpl::WeightProjs()
{
    m_aWeightImpl.SetSetRange(m_aiSetRange[0], m_aiSetRange[1]);
    return m_aWeightImpl.WeightRecon(m_pTextures->GetProjsArray());
}

bool CDiffProjImpl::WeightRef()
{
    m_aWeightImpl.SetSetRange(0, m_iProjs);
    return m_aWeightImpl.WeightRef(m_pTextures->GetRawProjsArray());
}

bool CDiffProjImpl::mCalcSums()
{
    const int iFirst = m_aiSetRange[0], iEnd = m_aiSetRange[1];
    m_aGForwardProj.SetSetRange(iFirst, iEnd);
    if (m_iSumsFirst <= iFirst && iEnd <= m_iSumsEnd) return true;
    NotifyVolChanged();
    if (!m_aGForwardProj.DoIt(m_aSums.GetImage())) return false;
    m_iSumsFirst = iFirst;
    m_iSumsEnd = iEnd;
    return true;
}
