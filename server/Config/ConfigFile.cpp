#include "server/Config/ConfigFile.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <limits>
#include <system_error>
#include <vector>

#include "Util/Util_Property.h"

namespace
{
/// Path of config.gpu in the working directory, empty when there is none.
std::string FindFile()
{
    std::vector<char> vcPath(256);
    while (getcwd(vcPath.data(), vcPath.size()) == nullptr)
    {
        if (errno != ERANGE || vcPath.size() > (1U << 20)) return {};
        vcPath.resize(2 * vcPath.size());
    }
    return std::string(vcPath.data()) + "/config.gpu";
}

/// Truncation toward zero; what an int cannot hold becomes the nearest int, NaN becomes 0.
int Truncate(double dValue)
{
    constexpr double dLow = std::numeric_limits<int>::min();
    constexpr double dHigh = std::numeric_limits<int>::max();
    return dValue == dValue ? static_cast<int>(std::clamp(dValue, dLow, dHigh)) : 0;
}

/// Reads a whole environment variable in a scanf format that ends in %n.
template <class T>
bool ReadVariable(const char* pcName, const char* pcFormat, T& rValue)
{
    const char* pcText = std::getenv(pcName);
    if (pcText == nullptr) return false;
    T tValue = 0;
    int iLength = 0;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int iRead = std::sscanf(pcText, pcFormat, &tValue, &iLength);
#pragma GCC diagnostic pop
    if (iRead != 1 || pcText[iLength] != '\0') return false;
    rValue = tValue;
    return true;
}

std::string GetText(const char* pcText)
{
    return pcText != nullptr ? pcText : "";
}
}  // namespace

void CConfigFile::Load()
{
    if (!mLoadFile()) mLoadEnvironment();
}

bool CConfigFile::mLoadFile()
{
    const std::string strPath = FindFile();
    if (strPath.empty()) return false;
    const Util_Property aFile(strPath.c_str());
    if (aFile.GetNumEntries() == 0) return false;
    // A missing key reads as 0: port 0, the lowest fraction.
    m_iServerPort = Truncate(aFile.GetValue("ServerPort"));
    mSetMemoryPercent(aFile.GetValue("MemoryPercentage"));
    mParseBusyGpus(aFile.GetStringValue("BusyGpus"));
    m_strBackend = GetText(aFile.GetStringValue("Backend"));
    m_strBindAddress = GetText(aFile.GetStringValue("BindAddress"));
    mSetIdleTimeout(aFile.GetValue("IdleTimeout"));
    mSetCores(Truncate(aFile.GetValue("Cores")));
    mSetDebugVolume(aFile.GetStringValue("DebugVolume"));
    return true;
}

void CConfigFile::mLoadEnvironment()
{
    double dFraction = m_fMemoryPercent, dSeconds = m_fIdleTimeout;
    int iCores = m_iCores;
    ReadVariable("TALVEN_PORT", "%d%n", m_iServerPort);
    ReadVariable("TALVEN_MEMORY_PCT", "%lf%n", dFraction);
    ReadVariable("TALVEN_IDLE_TIMEOUT", "%lf%n", dSeconds);
    ReadVariable("TALVEN_CORES", "%d%n", iCores);
    mSetMemoryPercent(dFraction);
    mSetIdleTimeout(dSeconds);
    mSetCores(iCores);
    if (const char* pcList = std::getenv("TALVEN_BUSY_GPUS")) mParseBusyGpus(pcList);
    m_strBackend = GetText(std::getenv("TALVEN_BACKEND"));
    m_strBindAddress = GetText(std::getenv("TALVEN_BIND"));
    mSetDebugVolume(std::getenv("TALVEN_DEBUG_VOLUME"));
}

void CConfigFile::mSetMemoryPercent(double dFraction)
{
    if (dFraction < 0.2)
        m_fMemoryPercent = 0.2f;
    else if (dFraction > 0.8)
        m_fMemoryPercent = 0.8f;
    else
        m_fMemoryPercent = static_cast<float>(dFraction);
    if (m_fMemoryPercent != m_fMemoryPercent) m_fMemoryPercent = 0.2f;  // "nan" is no number
}

void CConfigFile::mSetIdleTimeout(double dSeconds)
{
    constexpr double dMost = 1e6;  // eleven days
    m_fIdleTimeout = dSeconds > 0.0 ? static_cast<float>(std::min(dSeconds, dMost)) : 0.0f;
}

void CConfigFile::mSetCores(int iCores)
{
    constexpr int iMost = 1024;
    m_iCores = std::clamp(iCores, 0, iMost);
}

void CConfigFile::mSetDebugVolume(const char* pcPath)
{
    m_strDebugVolume = pcPath != nullptr && *pcPath != '\0' ? pcPath : mDefaultDebugVolume();
}

std::string CConfigFile::mDefaultDebugVolume()
{
    std::error_code aError;
    const std::filesystem::path aDirectory = std::filesystem::temp_directory_path(aError);
    return ((aError ? "/tmp" : aDirectory) / "talven-volume.mrc").string();
}

bool CConfigFile::IsBusyGpu(int i) const
{
    return i < 0 || i >= static_cast<int>(m_abBusyGpu.size()) || m_abBusyGpu[i];
}

void CConfigFile::mParseBusyGpus(const char* pcList)
{
    m_iNumBusyGpus = 0;
    m_abBusyGpu.fill(false);
    if (pcList == nullptr || *pcList == '\0') return;
    std::string strList = pcList;
    char* pcRest = nullptr;
    const char* pcToken = strtok_r(strList.data(), ", ", &pcRest);
    for (int i = 0; i < static_cast<int>(m_abBusyGpu.size()) && pcToken != nullptr; ++i)
    {
        const long iGpu = std::strtol(pcToken, nullptr, 10);
        if (iGpu < 0 || iGpu >= static_cast<long>(m_abBusyGpu.size())) return;
        m_abBusyGpu[iGpu] = true;
        ++m_iNumBusyGpus;
        pcToken = strtok_r(nullptr, ", ", &pcRest);
    }
}
