#pragma once

#include <string>
#include <vector>

#include "Util/Util_Singleton.h"

class CConfigFile;

/// The devices that jobs run on and the other settings of this server. Filled once at start-up.
class CGpuConfig : public Util_Singleton<CGpuConfig>
{
public:
    /// Loads the settings, chooses the backend and lists its devices, one line each; none when the
    /// wanted backend cannot be had.
    void QueryDevice();
    /// What the backend is, or why there is none.
    const std::string& GetBackend() const { return m_strBackend; }
    /// Takes the devices that the settings leave: memory of all devices in MiB, by ordinal; 0: the
    /// device cannot be used, the others keep their numbers.
    void SelectDevices(const CConfigFile& rConfig, const std::vector<int>& rMemory);

    int GetNumDevices() const { return static_cast<int>(m_viDeviceID.size()); }
    int GetDeviceID(int i) const { return mHas(i) ? m_viDeviceID[i] : -1; }
    const int* GetDeviceIDs() const { return m_viDeviceID.data(); }
    int GetDeviceMemory(int i) const { return mHas(i) ? m_viMemory[i] : 0; }  ///< MiB
    int GetTotalMemory() const;                                               ///< MiB
    int GetAvailableMemory() const;                                           ///< MiB for jobs
    int GetServerPort() const { return m_iServerPort; }
    const std::string& GetBindAddress() const { return m_strBindAddress; }
    float GetIdleTimeout() const { return m_fIdleTimeout; }  ///< seconds, 0: never
    const std::string& GetDebugVolume() const { return m_strDebugVolume; }

private:
    bool mHas(int i) const { return i >= 0 && i < GetNumDevices(); }

    std::vector<int> m_viMemory;
    std::vector<int> m_viDeviceID;  // ordinals, ascending
    float m_fMemoryPercent = 0.0f;
    int m_iServerPort = 0;
    std::string m_strBackend;
    std::string m_strBindAddress;
    float m_fIdleTimeout = 0.0f;
    std::string m_strDebugVolume;
};
