#include "gpulib/App/Iteration/SetSize.h"

#include <algorithm>

void CSetSize::SetNumSets(unsigned int uiSets, std::span<const unsigned int> uiSetSize)
{
    m_uiSets = uiSets;
    m_vuiSetSize.clear();
    if (uiSetSize.size() < uiSets) return;
    m_vuiSetSize.assign(uiSetSize.begin(), uiSetSize.begin() + uiSets);
}

void CSetSize::Calculate()
{
    if (m_vuiSetSize.empty()) mCalcSetSize();
    m_vullStartProj.assign(m_uiSets, 0);
    for (unsigned int i = 1; i < m_uiSets; ++i)
        m_vullStartProj[i] = m_vullStartProj[i - 1] + m_vuiSetSize[i - 1];
}

const int* CSetSize::GetSetRange(int iSet)
{
    const unsigned long long ullStart = m_vullStartProj[iSet];
    const unsigned long long ullEnd = ullStart + m_vuiSetSize[iSet];
    m_iRange[0] = static_cast<int>(std::min<unsigned long long>(ullStart, m_uiProjs));
    m_iRange[1] = static_cast<int>(std::min<unsigned long long>(ullEnd, m_uiProjs));
    return m_iRange;
}

const int* CSetSize::GetFullRange()
{
    m_iRange[0] = 0;
    m_iRange[1] = static_cast<int>(m_uiProjs);
    return m_iRange;
}

void CSetSize::mCalcSetSize()
{
    if (m_uiSets == 0) return;
    const unsigned int uiRest = m_uiProjs % m_uiSets;
    for (unsigned int i = 0; i < m_uiSets; ++i)
        m_vuiSetSize.push_back(m_uiProjs / m_uiSets + (i < uiRest ? 1 : 0));
}
