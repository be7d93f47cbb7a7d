#include "gpulib/App/Images/RangeTexture.h"

#include <cstddef>
#include <vector>

#include "gpulib/Device/DeviceError.h"

bool CRangeTexture::Create(int iSizeY, int iProjs)
{
    m_iSizeY = iSizeY;
    m_iProjs = iProjs;
    m_aRangeX.SetFloat();
    m_aRangeX.SetChannels(2);
    return m_aRangeX.Create(iSizeY, iProjs);
}

bool CRangeTexture::SetData(std::span<const unsigned int> uiRangeX, int iProjY, int iStartY)
{
    const std::size_t tNeeded = 2 * std::size_t(iProjY) * m_iProjs;
    if (uiRangeX.size() < tNeeded)
        return DeviceFail("column ranges: %zu values given, %zu needed", uiRangeX.size(), tNeeded);
    std::vector<float> vfPairs;
    vfPairs.reserve(2 * std::size_t(m_iSizeY) * m_iProjs);
    for (int n = 0; n < m_iProjs; ++n)
        for (const unsigned int uiColumn :
             uiRangeX.subspan(2 * (std::size_t(n) * iProjY + iStartY), 2 * std::size_t(m_iSizeY)))
            vfPairs.push_back(static_cast<float>(uiColumn));
    return m_aRangeX.HostToDevice(vfPairs.data());
}
