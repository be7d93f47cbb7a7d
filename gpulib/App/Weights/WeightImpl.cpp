#include "gpulib/App/Weights/WeightImpl.h"

#include <unordered_map>
#include <utility>

void CWeightImpl::Configure(const RunImages& rImages, std::span<const unsigned int> uiIndices)
{
    m_aGWeightProjs.SetImages(rImages);
    m_iProjs = rImages.aRawProjs.iHeight;
    m_viBefore.clear();
    std::unordered_map<unsigned int, int> aLast;
    for (const unsigned int uiProj : uiIndices)
    {
        const int p = static_cast<int>(m_viBefore.size());
        const auto [aEntry, bNew] = aLast.try_emplace(uiProj, p);
        m_viBefore.push_back(bNew ? -1 : std::exchange(aEntry->second, p));
    }
}

/// Runs an operation over the set such that a row is weighted once although its projection stands
/// in the set twice: in one launch, cut where a projection comes again.
template <class Operation>
bool CWeightImpl::mForEachOnce(SetRange aSet, Operation aOperation) const
{
    int iFirst = aSet.iFirst;
    for (int p = aSet.iFirst; p <= aSet.iEnd; ++p)
    {
        if (p < aSet.iEnd && m_viBefore[p] < aSet.iFirst) continue;
        if (iFirst < p && !aOperation(SetRange{iFirst, p})) return false;
        iFirst = p + 1;
    }
    return true;
}

bool CWeightImpl::WeightProjs(SetRange aSet) const
{
    return mForEachOnce(aSet, [&](SetRange aPart) { return m_aGWeightProjs.WeightProjs(aPart); });
}

bool CWeightImpl::WeightRecon(SetRange aSet) const
{
    return mForEachOnce(aSet, [&](SetRange aPart) { return m_aGWeightProjs.WeightRecon(aPart); });
}
