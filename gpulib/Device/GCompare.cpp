#include "gpulib/Device/GCompare.h"

#include <vector>

#include "gpulib/Device/Backend.h"
#include "gpulib/Device/Limits.h"

namespace
{
float SumByStride(const float* pfValues, int iValues)
{
    float afPartial[g_iPartialSums] = {};
    for (int i = 0; i < iValues; ++i) afPartial[i % g_iPartialSums] += pfValues[i];
    for (int iStride = g_iPartialSums / 2; iStride > 0; iStride /= 2)
        for (int t = 0; t < iStride; ++t) afPartial[t] += afPartial[t + iStride];
    return afPartial[0];
}
}  // namespace

bool GCompare::AllocMemory(int iWidth, int iRows)
{
    m_iWidth = iWidth;
    return m_aSums.Create(iRows, eCompareSums);
}

bool GCompare::DoIt(int iFirst, int iRows) const
{
    return GetBackend()->CompareSums({.aSums = m_aSums.GetImage(),
                                      .aAligned = m_aAligned,
                                      .aTransed = m_aTransed,
                                      .aMiss = m_aMiss,
                                      .iProjX = m_iWidth,
                                      .iFirst = iFirst,
                                      .iRows = iRows});
}

bool GCompare::GetTotals(CompareTotals& rTotals) const
{
    const int iRows = m_aSums.GetImage().iWidth;
    std::vector<float> vfSums(std::size_t(iRows) * eCompareSums);
    if (!m_aSums.ToHost(vfSums.data())) return false;
    for (int q = 0; q < eCompareSums; ++q)
        rTotals[q] = SumByStride(vfSums.data() + std::size_t(q) * iRows, iRows);
    return true;
}
