#include "gpulib/App/Iteration/TomoEmImpl.h"

#include "gpulib/App/Iteration/SetSize.h"

bool CTomoEmImpl::mDoIteration(unsigned int uiIter)
{
    return uiIter == 0 ? mDoSartRecon(uiIter) : mDoEmRecon(uiIter);
}

bool CTomoEmImpl::mDoEmRecon(unsigned int uiIter)
{
    for (unsigned int s = 0; s < m_pSetSize->GetNumSets(); ++s)
    {
        const int* piRange = m_pSetSize->GetSetRange(static_cast<int>(s));
        m_aBackProjImpl.SetRelax(mCalcRelax(uiIter, s));
        m_aBackProjImpl.SetSetRange(piRange);
        m_aDivProjImpl.SetSetRange(piRange);
        if (!m_aDivProjImpl.DoDiv() || !m_aBackProjImpl.DoItEm(m_iY, m_iRows)) return false;
        m_aDivProjImpl.NotifyVolChanged();
    }
    return true;
}
