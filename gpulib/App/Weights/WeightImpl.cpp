#include "gpulib/App/Weights/WeightImpl.h"

#include <unordered_map>
#include <utility>

#include "gpulib/App/Images/Textures.h"

void CWeightImpl::SetTextures(const CTextures& rTextures)
{
    m_aGWeightProjs.SetProjIndexArray(rTextures.GetProjIndexArray());
    m_aGWeightProjs.SetPreWeightArray(rTextures.GetPreWeightArray());
    m_aGWeightProjs.SetProjWeightArray(rTextures.GetProjWeightArray());
}

void CWeightImpl::SetProjIndices(std::span<const unsigned int> uiIndices)
{
    m_viBefore.clear();
    std::unordered_map<unsigned int, int> aLast;
    for (const unsigned int uiProj : uiIndices)
    {
        const int p = static_cast<int>(m_viBefore.size());
        const auto [aEntry, bNew] = aLast.try_emplace(uiProj, p);
        m_viBefore.push_back(bNew ? -1 : std::exchange(aEntry->second, p));
    }
}

void CWeightImpl::SetSetRange(int iStart, int iEnd)
{
    m_iStart = iStart;
    m_iEnd = iEnd;
}

/// Runs an operation over the set such that a row is weighted once although its projection stands
/// in the set twice: in one launch, cut where a projection comes again.
template <class Operation>
bool CWeightImpl::mForEachOnce(Operation aOperation)
{
    int iFirst = m_iStart;
    for (int p = m_iStart; p <= m_iEnd; ++p)
    {
        if (p < m_iEnd && m_viBefore[p] < m_iStart) continue;
        m_aGWeightProjs.SetSetRange(iFirst, p);
        if (iFirst < p && !aOperation()) return false;
        iFirst = p + 1;
    }
    return true;
}

bool CWeightImpl::WeightProjs(const DeviceImage& rRows)
{
    m_aGWeightProjs.SetProjsArray(rRows);
    return mForEachOnce([&] { return m_aGWeightProjs.WeightProjs(rRows); });
}

bool CWeightImpl::WeightRecon(const DeviceImage& rRows)
{
    m_aGWeightProjs.SetProjsArray(rRows);
    return mForEachOnce([&] { return m_aGWeightProjs.WeightRecon(rRows); });
}

bool CWeightImpl::WeightRef(const DeviceImage& rRows)
{
    m_aGWeightProjs.SetRawProjsArray(rRows);
    m_aGWeightProjs.SetSetRange(m_iStart, m_iEnd);
    return m_aGWeightProjs.WeightRef(rRows);
}
