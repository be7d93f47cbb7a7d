#include "talven/VolumeTilt.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace talven
{

int CVolumeTilt::GetSlices(int iZ, double dDegrees)
{
    const double dCos = std::cos(dDegrees * std::numbers::pi / 180);
    return static_cast<int>(std::ceil((iZ - 1) / dCos - 1e-9)) + 1;
}

CVolumeTilt::CVolumeTilt(double dDegrees, const JobSize& rFrom, int iZ)
    : m_dCos(std::cos(dDegrees * std::numbers::pi / 180)),
      m_dSin(std::sin(dDegrees * std::numbers::pi / 180)),
      m_iX(rFrom.iVolX),
      m_iY(rFrom.iProjY),
      m_iFrom(rFrom.iVolZ),
      m_iZ(iZ),
      m_vfFlat(std::size_t(m_iX) * std::size_t(m_iY))
{
}

bool CVolumeTilt::Take(int iSlice, std::span<const float> fSlice, const ImageSink& rSink,
                       std::string& rError)
{
    std::swap(m_vfBelow, m_vfAbove);
    m_vfAbove.assign(fSlice.begin(), fSlice.end());
    if (iSlice == 0) m_vfBelow = m_vfAbove;
    for (; m_iNext < m_iZ; ++m_iNext)
    {
        const double dAt = (m_iNext - 0.5 * (m_iZ - 1)) / m_dCos + 0.5 * (m_iFrom - 1);
        if (dAt > iSlice + 1e-9) return true;
        mMakeSlice(std::clamp(dAt - (iSlice - 1), 0.0, 1.0));
        if (!rSink(m_iNext, m_vfFlat, rError)) return false;
    }
    return true;
}

/// \param dFraction  of the slice above, the rest is that of the one below
void CVolumeTilt::mMakeSlice(double dFraction)
{
    const double dZ = m_iNext - 0.5 * (m_iZ - 1), dCentre = 0.5 * (m_iY - 1);
    for (int y = 0; y < m_iY; ++y)
    {
        const auto fRow =
            std::span(m_vfFlat).subspan(std::size_t(y) * std::size_t(m_iX), std::size_t(m_iX));
        const double dRow = (y - dCentre) * m_dCos - dZ * m_dSin + dCentre;
        std::ranges::fill(fRow, 0.0f);
        if (!(dRow >= 0 && dRow <= m_iY - 1)) continue;
        const auto iFirst = std::min(static_cast<int>(dRow), std::max(0, m_iY - 2));
        const auto Add = [&](const std::vector<float>& rSlice, int iRow, double dWeight)
        {
            if (dWeight == 0) return;
            const float* pfFrom = rSlice.data() + std::size_t(iRow) * std::size_t(m_iX);
            for (float& rfVoxel : fRow) rfVoxel += static_cast<float>(dWeight) * *pfFrom++;
        };
        const double dUpper = dRow - iFirst;
        Add(m_vfBelow, iFirst, (1 - dFraction) * (1 - dUpper));
        Add(m_vfBelow, iFirst + 1, (1 - dFraction) * dUpper);
        Add(m_vfAbove, iFirst, dFraction * (1 - dUpper));
        Add(m_vfAbove, iFirst + 1, dFraction * dUpper);
    }
}

}  // namespace talven
