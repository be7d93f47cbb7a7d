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
        rView.vfPixels.resize(std::size_t(rView.iWidth) * std::size_t(rView.iHeight));
}

void CVolumeViews::Add(int iZ, std::span<const float> fSection)
{
    const auto tX = static_cast<std::size_t>(m_iX);
    const auto tZ = static_cast<std::size_t>(iZ);
    auto& [rXY, rZY, rXZ] = m_aViews;
    if (iZ == rXY.iAt) std::copy(fSection.begin(), fSection.end(), rXY.vfPixels.begin());
    for (std::size_t y = 0; y < std::size_t(m_iY); ++y)
        rZY.vfPixels[y * std::size_t(m_iZ) + tZ] = fSection[y * tX + std::size_t(rZY.iAt)];
    const auto fRow = fSection.subspan(std::size_t(rXZ.iAt) * tX, tX);
    std::copy(fRow.begin(), fRow.end(),
              rXZ.vfPixels.begin() + static_cast<std::ptrdiff_t>(tZ * tX));
}

}  // namespace talven
