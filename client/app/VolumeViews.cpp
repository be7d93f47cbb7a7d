#include "VolumeViews.h"

#include <algorithm>

namespace talven
{

CVolumeViews::CVolumeViews(int iX, int iY, int iZ)
    : m_iX(iX),
      m_iY(iY),
      m_iZ(iZ),
      m_aViews{View{"XY", 'z', iZ / 2, iX, iY, {}}, View{"ZY", 'x', iX / 2, iZ, iY, {}},
               View{"XZ", 'y', iY / 2, iX, iZ, {}}}
{
    for (View& rView : m_aViews)
        rView.m_vfPixels.resize(std::size_t(rView.m_iWidth) * std::size_t(rView.m_iHeight));
}

void CVolumeViews::Add(int iZ, std::span<const float> pfSection)
{
    const auto tX = static_cast<std::size_t>(m_iX);
    const auto tZ = static_cast<std::size_t>(iZ);
    auto& [rXY, rZY, rXZ] = m_aViews;
    if (iZ == rXY.m_iAt) std::copy(pfSection.begin(), pfSection.end(), rXY.m_vfPixels.begin());
    for (std::size_t y = 0; y < std::size_t(m_iY); ++y)
        rZY.m_vfPixels[y * std::size_t(m_iZ) + tZ] = pfSection[y * tX + std::size_t(rZY.m_iAt)];
    const auto pfRow = pfSection.subspan(std::size_t(rXZ.m_iAt) * tX, tX);
    std::copy(pfRow.begin(), pfRow.end(),
              rXZ.m_vfPixels.begin() + static_cast<std::ptrdiff_t>(tZ * tX));
}

}  // namespace talven
