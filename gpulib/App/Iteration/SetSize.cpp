#include "gpulib/App/Iteration/SetSize.h"

#include <algorithm>

void CSetSize::SetNumSets(unsigned int uiSets, std::span<const unsigned int> uiSetSize)
{
    m_uiSets = uiSets;
    m_uiSetSize = uiSetSize;
    if (uiSetSize.size() < uiSets) m_uiSetSize = {};
}

void CSetSize::Calculate()
{
    m_vSets.clear();
    unsigned int uiStart = 0;
    for (unsigned int i = 0; i < m_uiSets; ++i)
    {
        const unsigned int uiSize = m_uiSetSize.empty() ? mCalcSetSize(i) : m_uiSetSize[i];
        const unsigned int uiEnd = uiStart + std::min(uiSize, m_uiProjs - uiStart);
        m_vSets.push_back({static_cast<int>(uiStart), static_cast<int>(uiEnd)});
        uiStart = uiEnd;
    }
}

unsigned int CSetSize::mCalcSetSize(unsigned int uiSet) const
{
    return m_uiProjs / m_uiSets + (uiSet < m_uiProjs % m_uiSets ? 1 : 0);
}
