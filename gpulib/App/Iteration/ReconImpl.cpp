#include "gpulib/App/Iteration/ReconImpl.h"

#include <cstddef>

#include "gpulib/App/Job.h"

CReconImpl::CReconImpl(const ReconJob& rJob) : m_rJob(rJob)
{
    m_aSetSize.SetNumProjs(static_cast<unsigned int>(rJob.uiProjIndex.size()));
    m_aSetSize.SetNumSets(rJob.uiNumSets, rJob.uiSetSize);
    m_aSetSize.Calculate();
}

bool CReconImpl::AllocMemory()
{
    return m_aRfactorImpl.AllocMemory(static_cast<int>(m_rJob.uiProjIndex.size()),
                                      static_cast<int>(m_rJob.uiIterations));
}

void CReconImpl::SetImages(const RunImages& rImages)
{
    m_aDifProjImpl.Configure(rImages, m_rJob.uiProjIndex);
    m_aBackProjImpl.SetImages(rImages);
    m_aRfactorImpl.SetImages(rImages);
}

bool CReconImpl::SetBatch(int iY, int iRows, bool bZero)
{
    m_iRows = iRows;
    m_aBackProjImpl.SetBatch(iY, iRows);
    m_aDifProjImpl.NotifyVolChanged();
    return !bZero || m_aDifProjImpl.NotifyVolZero();
}

bool CReconImpl::DoIt(unsigned int uiFirst, unsigned int uiEnd)
{
    if (uiFirst == 0 && !m_aRfactorImpl.CalcRaw(m_iRows)) return false;
    for (unsigned int i = uiFirst; i < uiEnd; ++i)
        if (!mDoIteration(i) || !mCalcRfactor(i)) return false;
    return true;
}

bool CReconImpl::mDoIteration(unsigned int uiIter)
{
    for (unsigned int s = 0; s < m_aSetSize.GetNumSets(); ++s)
    {
        const bool bLast = s + 1 == m_aSetSize.GetNumSets();
        m_aNext = bLast ? SetRange() : m_aSetSize.GetSetRange(s + 1);
        if (!mDoSet(uiIter, m_aSetSize.GetSetRange(s), mCalcRelax(uiIter, s))) return false;
        m_aDifProjImpl.NotifyVolChanged(m_aNext);
    }
    return true;
}

float CReconImpl::mCalcRelax(unsigned int uiIter, unsigned int uiSet) const
{
    if (m_rJob.fRelax.empty()) return 1.0f;
    return m_rJob.fRelax[std::size_t(m_aSetSize.GetNumSets()) * uiIter + uiSet];
}

bool CReconImpl::mDoSartRecon(SetRange aSet, float fRelax)
{
    return m_aDifProjImpl.DoDif(aSet) && m_aBackProjImpl.DoIt(aSet, fRelax, m_aNext);
}

bool CReconImpl::mDoEmRecon(SetRange aSet, float fRelax)
{
    return m_aDifProjImpl.DoDiv(aSet) && m_aBackProjImpl.DoItEm(aSet, fRelax, m_aNext);
}

bool CReconImpl::mCalcRfactor(unsigned int uiIter)
{
    return m_aDifProjImpl.CalcSums(m_aSetSize.GetFullRange()) &&
           m_aRfactorImpl.CalcDif(static_cast<int>(uiIter), m_iRows);
}

bool CReconImpl::GetRfactor(std::vector<double>& rRfactor) const
{
    return m_aRfactorImpl.GetRfactor(rRfactor);
}
