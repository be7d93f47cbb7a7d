#include "tests/soak/Vitals.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

Vitals GetVitals(pid_t iPid)
{
    Vitals aVitals;
    const std::string strProcess = "/proc/" + std::to_string(iPid);
    std::ifstream aStatus(strProcess + "/status");
    for (std::string strKey, strRest; aStatus >> strKey && std::getline(aStatus, strRest);)
    {
        const long lValue = std::strtol(strRest.c_str(), nullptr, 10);
        if (strKey == "VmRSS:") aVitals.lRss = lValue;
        if (strKey == "VmHWM:") aVitals.lPeak = lValue;
        if (strKey == "Threads:") aVitals.iThreads = static_cast<int>(lValue);
    }
    std::error_code aIgnored;
    for (std::filesystem::directory_iterator a(strProcess + "/fd", aIgnored), aEnd;
         !aIgnored && a != aEnd; a.increment(aIgnored))
        ++aVitals.iDescriptors;
    return aVitals;
}
