#include "gpulib/Device/DeviceInfo.h"

#include <algorithm>
#include <cstddef>
#include <limits>

#include "gpulib/Device/Backend.h"

void CDeviceInfo::Query()
{
    m_viMemory.clear();
    m_iTotalMemory = 0;
    const CBackend* pBackend = GetBackend();
    if (!pBackend) return;
    std::size_t tTotal = 0;
    for (int i = 0; i < pBackend->GetDeviceCount(); ++i)
    {
        const std::size_t tMiB = pBackend->GetDeviceMemory(i) >> 20;
        m_viMemory.push_back(static_cast<int>(tMiB));
        tTotal += tMiB;
    }
    m_iTotalMemory =
        static_cast<int>(std::min<std::size_t>(tTotal, std::numeric_limits<int>::max()));
}

int CDeviceInfo::GetDeviceMemory(int iDevice) const
{
    return iDevice >= 0 && iDevice < GetNumDevices() ? m_viMemory[iDevice] : 0;
}
