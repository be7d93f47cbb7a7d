#pragma once

#include <array>
#include <string>

/// The server's settings: the file config.gpu in the working directory or, when that has no
/// entries, the environment.
class CConfigFile
{
public:
    void Load();

    int GetServerPort() const { return m_iServerPort; }
    float GetMemoryPercent() const { return m_fMemoryPercent; }     ///< a fraction, 0.2 to 0.8
    int GetNumBusyGpus() const { return m_iNumBusyGpus; }           ///< duplicates count twice
    bool IsBusyGpu(int i) const;                                    ///< true beyond the list of 16
    const std::string& GetBackend() const { return m_strBackend; }  ///< empty: auto
    const std::string& GetBindAddress() const { return m_strBindAddress; }  ///< empty: all
    float GetIdleTimeout() const { return m_fIdleTimeout; }                 ///< seconds, 0: never
    int GetCores() const { return m_iCores; }  ///< of the host backend, 0: all

    /// Where a volume goes that is written for inspection.
    const std::string& GetDebugVolume() const { return m_strDebugVolume; }

private:
    bool mLoadFile();
    void mLoadEnvironment();
    void mParseBusyGpus(const char* pcList);
    void mSetMemoryPercent(double dFraction);
    void mSetIdleTimeout(double dSeconds);
    void mSetCores(int iCores);
    void mSetDebugVolume(const char* pcPath);
    static std::string mDefaultDebugVolume();

    std::array<bool, 16> m_abBusyGpu{};
    int m_iNumBusyGpus = 0;
    int m_iServerPort = 20248;
    float m_fMemoryPercent = 0.5f;
    std::string m_strBackend;
    std::string m_strBindAddress;
    float m_fIdleTimeout = 0.0f;
    int m_iCores = 0;
    std::string m_strDebugVolume = mDefaultDebugVolume();
};
