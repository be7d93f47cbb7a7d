#include "Machine/MachineLimits.h"

#include <sched.h>
#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <fstream>
#include <initializer_list>
#include <sstream>
#include <string_view>
#include <thread>

namespace talven
{
namespace
{

constexpr std::uint64_t g_ulNone = CMachineLimits::g_ulNone;

bool IsFolder(const std::string& strPath)
{
    struct stat aStat
    {
    };
    return stat(strPath.c_str(), &aStat) == 0 && S_ISDIR(aStat.st_mode);
}

/// The first number of a file; g_ulNone when there is none, such as "max" or -1.
std::uint64_t ReadNumber(const std::string& strPath)
{
    std::ifstream aFile(strPath);
    std::int64_t iValue = 0;
    return aFile >> iValue && iValue >= 0 ? static_cast<std::uint64_t>(iValue) : g_ulNone;
}

/// The number behind a name in a file of lines "name number"; 0 when there is none.
std::uint64_t ReadEntry(const std::string& strPath, std::string_view strWanted)
{
    std::ifstream aFile(strPath);
    std::string strName;
    std::uint64_t ulValue = 0;
    while (aFile >> strName >> ulValue)
        if (strName == strWanted) return ulValue;
    return 0;
}

/// Whether a list "cpu,cpuacct" has a name in it.
bool HasName(const std::string& strList, std::string_view strWanted)
{
    std::istringstream aList(strList);
    for (std::string strName; std::getline(aList, strName, ',');)
        if (strName == strWanted) return true;
    return false;
}

/// Path of our group in the hierarchy of a controller, as /proc/self/cgroup tells it in lines
/// "number:controllers:path"; an empty name: in that of version 2.
std::string FindPath(const std::string& strRoot, std::string_view strController)
{
    std::ifstream aFile(strRoot + "/proc/self/cgroup");
    for (std::string strLine; std::getline(aFile, strLine);)
    {
        const std::size_t tFirst = strLine.find(':');
        const std::size_t tSecond = strLine.find(':', tFirst + 1);
        if (tFirst == std::string::npos || tSecond == std::string::npos) continue;
        const std::string strList = strLine.substr(tFirst + 1, tSecond - tFirst - 1);
        if (strController.empty() ? strList.empty() : HasName(strList, strController))
            return strLine.substr(tSecond + 1);
    }
    return {};
}

/// The folders from our group up to the mounted root, which stands for what is not to be seen.
void AddFolders(const std::string& strMount, std::string strPath, std::vector<std::string>& rFound)
{
    if (strPath.starts_with("/..") || !IsFolder(strMount + strPath)) strPath.clear();
    while (strPath.size() > 1)
    {
        rFound.push_back(strMount + strPath);
        strPath.resize(strPath.rfind('/'));
    }
    rFound.push_back(strMount);
}

/// The folders of a controller in version 2 and in version 1; one of them has its files.
std::vector<std::string> FindFolders(const std::string& strRoot, const char* pcController,
                                     const char* pcOtherMount)
{
    const std::string strGroups = strRoot + "/sys/fs/cgroup";
    std::vector<std::string> vstrFound;
    AddFolders(strGroups, FindPath(strRoot, ""), vstrFound);
    AddFolders(strGroups + "/unified", FindPath(strRoot, ""), vstrFound);
    for (const char* pcMount : {pcController, pcOtherMount})
        if (IsFolder(strGroups + "/" + pcMount))
        {
            AddFolders(strGroups + "/" + pcMount, FindPath(strRoot, pcController), vstrFound);
            break;
        }
    return vstrFound;
}

/// Of one group, in whole cores; 0: none.
std::uint64_t ReadQuota(const std::string& strFolder)
{
    std::uint64_t ulQuota = 0, ulPeriod = 0;
    if (!(std::ifstream(strFolder + "/cpu.max") >> ulQuota >> ulPeriod))
    {
        ulQuota = ReadNumber(strFolder + "/cpu.cfs_quota_us");
        ulPeriod = ReadNumber(strFolder + "/cpu.cfs_period_us");
    }
    if (ulQuota == g_ulNone || ulPeriod == g_ulNone || ulPeriod == 0) return 0;
    return std::max<std::uint64_t>(ulQuota / ulPeriod + (ulQuota % ulPeriod > 0), 1);
}

std::uint64_t ReadLimit(const std::string& strFolder)
{
    return std::min(ReadNumber(strFolder + "/memory.max"),
                    ReadNumber(strFolder + "/memory.limit_in_bytes"));
}

/// Of one group and those in it, without the files that nobody has touched for a while.
std::uint64_t ReadUsage(const std::string& strFolder)
{
    std::uint64_t ulUsed = ReadNumber(strFolder + "/memory.current");
    const char* pcFiles = "inactive_file";
    if (ulUsed == g_ulNone)
    {
        ulUsed = ReadNumber(strFolder + "/memory.usage_in_bytes");
        pcFiles = "total_inactive_file";
    }
    if (ulUsed == g_ulNone) return 0;
    return ulUsed - std::min(ulUsed, ReadEntry(strFolder + "/memory.stat", pcFiles));
}

int CountAllowed()
{
    cpu_set_t aSet;
    if (sched_getaffinity(0, sizeof(aSet), &aSet) == 0) return CPU_COUNT(&aSet);
    return static_cast<int>(std::thread::hardware_concurrency());  // more than such a set holds
}

}  // namespace

CMachineLimits::CMachineLimits(const std::string& strRoot)
    : m_vstrMemory(FindFolders(strRoot, "memory", "memory")),
      m_vstrCpu(FindFolders(strRoot, "cpu", "cpu,cpuacct"))
{
}

std::uint64_t CMachineLimits::GetMemory() const
{
    std::uint64_t ulLeast = g_ulNone;
    for (const std::string& rFolder : m_vstrMemory) ulLeast = std::min(ulLeast, ReadLimit(rFolder));
    return ulLeast;
}

std::uint64_t CMachineLimits::GetFreeMemory() const
{
    std::uint64_t ulLeast = g_ulNone;
    for (const std::string& rFolder : m_vstrMemory)
    {
        const std::uint64_t ulLimit = ReadLimit(rFolder);
        if (ulLimit == g_ulNone) continue;
        ulLeast = std::min(ulLeast, ulLimit - std::min(ulLimit, ReadUsage(rFolder)));
    }
    return ulLeast;
}

int CMachineLimits::GetCores() const
{
    std::uint64_t ulLeast = 0;
    for (const std::string& rFolder : m_vstrCpu)
        if (const std::uint64_t ulCores = ReadQuota(rFolder); ulCores > 0)
            ulLeast = ulLeast == 0 ? ulCores : std::min(ulLeast, ulCores);
    return static_cast<int>(std::min<std::uint64_t>(ulLeast, INT_MAX));
}

int CMachineLimits::CountCores()
{
    const int iQuota = CMachineLimits().GetCores();
    const int iAllowed = std::max(CountAllowed(), 1);
    return iQuota > 0 ? std::min(iAllowed, iQuota) : iAllowed;
}

}  // namespace talven
