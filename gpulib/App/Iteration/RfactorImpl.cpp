#include "gpulib/App/Iteration/RfactorImpl.h"

#include <cstddef>

bool CRfactorImpl::AllocMemory(int iProjs, int iIters)
{
    m_aRawRfactor.SetDouble();
    m_aDifRfactor.SetDouble();
    return m_aRawRfactor.Create(iProjs, 1) && m_aDifRfactor.Create(iProjs, iIters);
}

bool CRfactorImpl::CalcRaw(int iRows) const
{
    return m_aGRFactor.DoRaw(m_aRawRfactor.GetImage(), iRows);
}

bool CRfactorImpl::CalcDif(int iIter, int iRows) const
{
    return m_aGRFactor.DoDif(m_aDifRfactor.GetImage(), iIter, iRows);
}

bool CRfactorImpl::GetRfactor(std::vector<double>& rRfactor) const
{
    rRfactor.clear();
    const std::size_t tProjs = m_aDifRfactor.GetImage().iWidth;
    const std::size_t tSums = tProjs * m_aDifRfactor.GetImage().iHeight;
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
