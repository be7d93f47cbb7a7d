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

bool CWeightImpl::WeightProjs(SetRange aSet) const
{
    return ForEachOnce(aSet, [&](SetRange aPart) { return m_aGWeightProjs.WeightProjs(aPart); });
}

bool CWeightImpl::WeightRecon(SetRange aSet) const
{
    return ForEachOnce(aSet, [&](SetRange aPart) { return m_aGWeightProjs.WeightRecon(aPart); });
}
