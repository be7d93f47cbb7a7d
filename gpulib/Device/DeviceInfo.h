#pragma once

#include <vector>

/// Memory of all devices of the backend in use, in MiB.
class CDeviceInfo
{
public:
    void Query();
    int GetNumDevices() const { return static_cast<int>(m_viMemory.size()); }
    int GetDeviceMemory(int iDevice) const;  ///< 0 when there is no such device
    int GetTotalMemory() const { return m_iTotalMemory; }

private:
    std::vector<int> m_viMemory;
    int m_iTotalMemory = 0;
};
