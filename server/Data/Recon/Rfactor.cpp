#include "server/Data/Recon/Rfactor.h"

#include <algorithm>
#include <utility>

void CRfactor::SetSize(std::uint32_t uiNumProjs, std::uint32_t uiIterations)
{
    std::vector<double> vdFactor(std::size_t{2} * uiNumProjs * uiIterations);
    const std::lock_guard aLock(m_aMutex);
    m_vdFactor = std::move(vdFactor);
    m_uiNumProjs = uiNumProjs;
    m_uiIterations = uiIterations;
}

void CRfactor::SetRfactor(std::span<const double> adRfactor)
{
    const std::lock_guard aLock(m_aMutex);
    const std::size_t tCount = std::min(adRfactor.size(), m_vdFactor.size());
    for (std::size_t i = 0; i < tCount; ++i) m_vdFactor[i] += adRfactor[i];
}

std::vector<float> CRfactor::GetNthIteration(short sIteration)
{
    const std::lock_guard aLock(m_aMutex);
    if (sIteration < 0 || static_cast<std::uint32_t>(sIteration) >= m_uiIterations) return {};
    const std::size_t tCount = std::size_t{2} * m_uiNumProjs;
    const auto aFirst = m_vdFactor.begin() + static_cast<std::ptrdiff_t>(tCount * sIteration);
    return {aFirst, aFirst + static_cast<std::ptrdiff_t>(tCount)};
}

float CRfactor::mSum(int iIteration, int iWhich)
{
    const std::lock_guard aLock(m_aMutex);
    if (iIteration < 0 || static_cast<std::uint32_t>(iIteration) >= m_uiIterations) return 0.0f;
    const std::size_t tFirst = std::size_t{2} * m_uiNumProjs * iIteration;
    double dSum = 0.0;
    for (std::size_t k = 0; k < m_uiNumProjs; ++k) dSum += m_vdFactor[tFirst + 2 * k + iWhich];
    return static_cast<float>(dSum);
}

std::uint32_t CRfactor::GetIterations()
{
    const std::lock_guard aLock(m_aMutex);
    return m_uiIterations;
}
