#include "gpulib/Device/GCompare.h"

#include <vector>

#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceError.h"
#include "gpulib/Device/DriverChecks.h"

namespace
{
float SumByStride(const float* pfValues, int iValues)
{
    constexpr int iPartials = 256;
    float afPartial[iPartials] = {};
    for (int i = 0; i < iValues; ++i) afPartial[i % iPartials] += pfValues[i];
    for (int iStride = iPartials / 2; iStride > 0; iStride /= 2)
        for (int t = 0; t < iStride; ++t) afPartial[t] += afPartial[t + iStride];
    return afPartial[0];
}
}  // namespace

bool GCompare::AllocMemory(int iWidth, int iRows)
{
    m_iWidth = iWidth;
    return m_aSums.Create(iRows, eCompareSums);
}

bool GCompare::DoIt(int iFirst, int iRows)
{
    constexpr const char* pcName = "CompareSums";
    if (iRows <= 0) return true;
    CompareParams aP;
    aP.aSums = m_aSums.GetImage();
    aP.aAligned = m_aAligned;
    aP.aTransed = m_aTransed;
    aP.aMiss = m_aMiss;
    aP.iProjX = m_iWidth;
    aP.iFirst = iFirst;
    aP.iRows = iRows;
    if (iFirst < 0 || iRows > aP.aSums.iWidth - iFirst)
        return DeviceFail("%s: %d rows from row %d of %d", pcName, iRows, iFirst, aP.aSums.iWidth);
    if (!CheckImageExtents(pcName, m_iWidth, iRows) ||
        !CheckImage(pcName, "projection", m_aAligned, m_iWidth, iRows) ||
        !CheckImage(pcName, "transformed rows", m_aTransed, m_iWidth, iRows) ||
        !CheckImage(pcName, "mask", m_aMiss, m_iWidth, iRows))
        return false;
    return GetBackend()->CompareSums(aP);
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
