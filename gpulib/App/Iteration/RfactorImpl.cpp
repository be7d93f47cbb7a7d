#include "gpulib/App/Iteration/RfactorImpl.h"

#include <cstddef>

#include "gpulib/App/Images/Textures.h"

void CRfactorImpl::SetTextures(const CTextures& rTextures)
{
    m_aGRFactor.SetProjIndexArray(rTextures.GetProjIndexArray());
    m_aGRFactor.SetProjsArray(rTextures.GetProjsArray());
    m_aGRFactor.SetRawProjsArray(rTextures.GetRawProjsArray());
}

bool CRfactorImpl::AllocMemory(int iProjX, int iProjs, int iIters)
{
    m_iProjs = iProjs;
    m_iIters = iIters;
    m_aGRFactor.SetProjSize(iProjX, iProjs);
    m_aRawRfactor.SetDouble();
    m_aDifRfactor.SetDouble();
    return m_aRawRfactor.Create(iProjs, 1) && m_aDifRfactor.Create(iProjs, iIters);
}

bool CRfactorImpl::CalcRaw(int iRows)
{
    return m_aGRFactor.DoRaw(m_aRawRfactor.GetImage(), iRows);
}

bool CRfactorImpl::CalcDif(int iIter, int iRows)
{
    return m_aGRFactor.DoDif(m_aDifRfactor.GetImage(), iIter, iRows);
}

bool CRfactorImpl::GetRfactor(std::vector<double>& rRfactor) const
{
    rRfactor.clear();
    const std::size_t tProjs = m_iProjs, tSums = tProjs * m_iIters;
    std::vector<double> vdRaw(tProjs), vdDif(tSums);
    if (!m_aRawRfactor.ToHost(vdRaw.data()) || !m_aDifRfactor.ToHost(vdDif.data())) return false;
    rRfactor.reserve(2 * tSums);
    for (std::size_t i = 0; i < tSums; ++i)
    {
        rRfactor.push_back(vdRaw[i % tProjs]);
        rRfactor.push_back(vdDif[i]);
    }
    return true;
}

void CRfactorImpl::FreeMemory()
{
    m_aRawRfactor.Free();
    m_aDifRfactor.Free();
}
