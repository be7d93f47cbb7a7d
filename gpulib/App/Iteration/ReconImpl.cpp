#include "gpulib/App/Iteration/ReconImpl.h"

#include <cstddef>

#include "gpulib/App/Iteration/SetSize.h"
#include "gpulib/App/Project/DiffProjImpl.h"

void CReconImpl::SetProjs(int iProjX, int iProjs, std::span<const unsigned int> uiIndices)
{
    m_iProjX = iProjX;
    m_iProjs = iProjs;
    m_uiIndices = uiIndices;
}

void CReconImpl::SetVolSize(int iVolX, int iVolZ)
{
    m_iVolX = iVolX;
    m_iVolZ = iVolZ;
}

bool CReconImpl::Configure(int iLanes)
{
    m_aBackProjImpl.SetTextures(*m_pTextures);
    m_aBackProjImpl.SetVolSize(m_iVolX, m_iVolZ);
    m_aBackProjImpl.SetProjX(m_iProjX);

    CDiffProjImpl& rDifProj = mGetDifProj();
    rDifProj.SetTextures(*m_pTextures);
    rDifProj.SetProjIndices(m_uiIndices);
    rDifProj.SetProjSize(m_iProjX, m_iProjs);
    rDifProj.SetVolSize(m_iVolX, m_iVolZ);
    if (!rDifProj.AllocMemory(iLanes)) return false;

    m_aRfactorImpl.SetTextures(*m_pTextures);
    return m_aRfactorImpl.AllocMemory(m_iProjX, static_cast<int>(m_uiIndices.size()),
                                      static_cast<int>(m_uiIters));
}

bool CReconImpl::SetBatch(int iY, int iRows, bool bZero)
{
    m_iY = iY;
    m_iRows = iRows;
    mGetDifProj().NotifyVolChanged();
    return (!bZero || mGetDifProj().NotifyVolZero()) && mGetDifProj().WeightRef();
}

bool CReconImpl::DoIt(unsigned int uiFirst, unsigned int uiEnd)
{
    if (uiFirst == 0 && !m_aRfactorImpl.CalcRaw(m_iRows)) return false;
    for (unsigned int i = uiFirst; i < uiEnd; ++i)
        if (!mDoIteration(i) || !mCalcRfactor(i)) return false;
    return true;
}

bool CReconImpl::StartToHost(int iStartY, Util_Volume& rVolume) const
{
    return m_aBackProjImpl.StartToHost(rVolume, iStartY + m_iY, m_iRows);
}

bool CReconImpl::GetRfactor(std::vector<double>& rRfactor) const
{
    return m_aRfactorImpl.GetRfactor(rRfactor);
}

void CReconImpl::FreeMemory()
{
    mGetDifProj().FreeMemory();
    m_aRfactorImpl.FreeMemory();
}

bool CReconImpl::mDoSartRecon(unsigned int uiIter)
{
    CDiffProjImpl& rDifProj = mGetDifProj();
    for (unsigned int s = 0; s < m_pSetSize->GetNumSets(); ++s)
    {
        const int* piRange = m_pSetSize->GetSetRange(static_cast<int>(s));
        m_aBackProjImpl.SetRelax(mCalcRelax(uiIter, s));
        m_aBackProjImpl.SetSetRange(piRange);
        rDifProj.SetSetRange(piRange);
        if (!rDifProj.DoDif() || !rDifProj.WeightProjs() || !m_aBackProjImpl.DoIt(m_iY, m_iRows))
            return false;
        rDifProj.NotifyVolChanged();
    }
    return true;
}

bool CReconImpl::mCalcRfactor(unsigned int uiIter)
{
    CDiffProjImpl& rDifProj = mGetDifProj();
    rDifProj.SetSetRange(m_pSetSize->GetFullRange());
    return rDifProj.DoDif() && m_aRfactorImpl.CalcDif(static_cast<int>(uiIter), m_iRows);
}

float CReconImpl::mCalcRelax(unsigned int uiIter, unsigned int uiSet) const
{
    if (m_fRelax.empty()) return 1.0f;
    return m_fRelax[std::size_t(m_pSetSize->GetNumSets()) * uiIter + uiSet];
}
