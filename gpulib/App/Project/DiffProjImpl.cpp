#include "gpulib/App/Project/DiffProjImpl.h"

#include "gpulib/Device/Backend.h"

void CDiffProjImpl::Configure(const RunImages& rImages, std::span<const unsigned int> uiIndices)
{
    m_aGForwardProj.SetImages(rImages);
    m_aWeightImpl.Configure(rImages, uiIndices);
    m_aSums = rImages.aSums;
    m_aAll = {0, static_cast<int>(uiIndices.size())};
    NotifyVolChanged();
}

bool CDiffProjImpl::NotifyVolZero()
{
    m_aKept = m_aAll;
    return GetBackend()->Clear(m_aSums);
}

bool CDiffProjImpl::mHoldsSums(SetRange aSet) const
{
    return m_aKept.iFirst <= aSet.iFirst && aSet.iEnd <= m_aKept.iEnd;
}

bool CDiffProjImpl::CalcSums(SetRange aSet)
{
    if (mHoldsSums(aSet)) return true;
    NotifyVolChanged();
    if (!m_aGForwardProj.DoIt(aSet)) return false;
    m_aKept = aSet;
    return true;
}

bool CDiffProjImpl::mCompare(SetRange aSet, ECombine eOperation)
{
    const bool bMade = m_aMade.iFirst == aSet.iFirst && m_aMade.iEnd == aSet.iEnd;
    const bool bSums = mHoldsSums(aSet);
    NotifyVolChanged();
    if (bMade) return true;
    if (!bSums) return m_aGForwardProj.DoIt(aSet, eOperation);
    return m_aWeightImpl.ForEachOnce(
        aSet, [&](SetRange aPart) { return m_aGForwardProj.Combine(aPart, eOperation); });
}
