#include "server/Config/GpuConfig.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <limits>

#include "gpulib/Device/Backend.h"
#include "gpulib/Device/DeviceInfo.h"
#include "server/Config/ConfigFile.h"

void CGpuConfig::QueryDevice()
{
    CConfigFile aConfig;
    aConfig.Load();
    HostCores aCores = {aConfig.GetCores()};
    for (int i = 0; i < 16; ++i) aCores.uiBusy |= unsigned(aConfig.IsBusyGpu(i)) << i;
    std::unique_ptr<CBackend> pBackend = MakeBackend(aConfig.GetBackend(), m_strBackend, aCores);
    if (pBackend) std::printf("Info: Backend %s.\n", m_strBackend.c_str());
    SetBackend(std::move(pBackend));

    CDeviceInfo aInfo;
    aInfo.Query();
    std::vector<int> viMemory(aInfo.GetNumDevices());
    for (int i = 0; i < aInfo.GetNumDevices(); ++i) viMemory[i] = aInfo.GetDeviceMemory(i);
    SelectDevices(aConfig, viMemory);
}

void CGpuConfig::SelectDevices(const CConfigFile& rConfig, const std::vector<int>& rMemory)
{
    m_viDeviceID.clear();
    m_viMemory.clear();
    const int iDevices = static_cast<int>(rMemory.size());
    std::printf("Info: %d devices available.\n", iDevices);
    for (int i = 0; i < iDevices; ++i)
    {
        if (rConfig.IsBusyGpu(i) || rMemory[i] == 0) continue;
        m_viDeviceID.push_back(i);
        m_viMemory.push_back(rMemory[i]);
        std::printf("Info: GPU %d is used for computation.\n", i);
    }
    m_iServerPort = rConfig.GetServerPort();
    m_fMemoryPercent = rConfig.GetMemoryPercent();
    m_strBindAddress = rConfig.GetBindAddress();
    m_fIdleTimeout = rConfig.GetIdleTimeout();
    m_strDebugVolume = rConfig.GetDebugVolume();
}

int CGpuConfig::GetTotalMemory() const
{
    std::int64_t iTotal = 0;
    for (const int iMemory : m_viMemory) iTotal += iMemory;
    return static_cast<int>(std::min<std::int64_t>(iTotal, std::numeric_limits<int>::max()));
}

int CGpuConfig::GetAvailableMemory() const
{
    return static_cast<int>(m_fMemoryPercent * static_cast<float>(GetTotalMemory()));
}
