#include "ServerLink.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <limits>
#include <thread>

#include "Interrupt.h"

namespace talven
{
namespace
{

using namespace std::chrono_literals;

constexpr std::uint16_t g_usDefaultPort = 20248;
constexpr std::uint64_t g_ulMaxVoxels = std::uint64_t(1) << 31;  // of the server, exclusive

/// A number from a file that holds nothing else; 0 when there is none ("max").
std::uint64_t ReadNumber(const char* pcPath)
{
    std::uint64_t ulValue = 0;
    std::ifstream(pcPath) >> ulValue;
    return ulValue;
}

/// What the memory limit of our control group leaves; no limit: all.
std::uint64_t GetGroupMemory()
{
    const std::pair<const char*, const char*> aFiles[] = {
        {"/sys/fs/cgroup/memory.max", "/sys/fs/cgroup/memory.current"},
        {"/sys/fs/cgroup/memory/memory.limit_in_bytes",
         "/sys/fs/cgroup/memory/memory.usage_in_bytes"}};
    for (const auto& [pcLimit, pcUsed] : aFiles)
        if (const std::uint64_t ulLimit = ReadNumber(pcLimit); ulLimit != 0)
            return ulLimit - std::min(ulLimit, ReadNumber(pcUsed));
    return std::numeric_limits<std::uint64_t>::max();
}

}  // namespace

bool ParseServer(const std::string& strText, std::string& rHost, std::uint16_t& rPort)
{
    std::size_t tColon = strText.rfind(':');
    if (tColon != std::string::npos && strText.find(']', tColon) != std::string::npos)
        tColon = std::string::npos;  // inside an address in brackets
    rHost = strText.substr(0, tColon);
    rPort = g_usDefaultPort;
    if (rHost.size() > 2 && rHost.front() == '[' && rHost.back() == ']')
        rHost = rHost.substr(1, rHost.size() - 2);
    if (rHost.empty()) return false;
    if (tColon == std::string::npos) return true;
    const char* pcEnd = strText.data() + strText.size();
    const auto [pcStop, eError] = std::from_chars(strText.data() + tColon + 1, pcEnd, rPort);
    return eError == std::errc() && pcStop == pcEnd && rPort != 0;
}

bool CServerLink::Connect(const ServerOptions& rOptions, const CReport& rReport)
{
    m_aSession.SetInterruptFd(CInterrupt::GetFd());
    m_bPrivate = rOptions.strServer.empty();
    if (m_bPrivate)
    {
        PrivateServerOptions aPrivate;
        aPrivate.iDevices = rOptions.iDevices;
        aPrivate.strBackend = rOptions.strBackend;
        if (m_aServer.Start(aPrivate, m_aSession)) return true;
        m_strError = m_aServer.GetError();
        return false;
    }

    std::string strHost;
    std::uint16_t usPort = 0;
    if (!ParseServer(rOptions.strServer, strHost, usPort))
    {
        m_strError = "\"" + rOptions.strServer + "\" is not HOST:PORT";
        return false;
    }
    if (!m_aSession.Open(strHost, usPort, 10s))
    {
        m_strError = m_aSession.GetError();
        return false;
    }
    // The first reply comes when the server has finished with the clients before us.
    const CElapsedTime aWaiting(rReport, "waiting for the server");
    std::uint64_t ulMemory = 0;
    if (m_aSession.GetServerMemory(ulMemory)) return true;
    m_strError = Explain();
    return false;
}

void CServerLink::Close()
{
    m_aSession.Close();
    m_aServer.Stop();
}

std::string CServerLink::Explain() const
{
    if (m_aSession.WasInterrupted()) return "interrupted";
    std::string strError = m_aSession.GetError();
    if (m_bPrivate)
    {
        if (const std::string strServer = m_aServer.GetServerError();
            m_aSession.WasRefused() && !strServer.empty())
            return strError + ": " + strServer;
        // A process that dies closes its sockets a little before it can be waited for.
        std::string strEnd;
        for (int i = 0; i < 20 && !m_aSession.IsOpen() && strEnd.empty(); ++i)
        {
            if (i > 0) std::this_thread::sleep_for(10ms);
            strEnd = m_aServer.DescribeEnd();
        }
        strError += strEnd;
    }
    else if (m_aSession.WasRefused())
        strError += " (its console says why)";
    return strError;
}

std::uint64_t GetFreeMemory()
{
    std::ifstream aInfo("/proc/meminfo");
    std::string strName;
    std::string strRest;
    std::uint64_t ulKiB = 0;
    while (aInfo >> strName >> ulKiB && std::getline(aInfo, strRest))
        if (strName == "MemAvailable:") return std::min(ulKiB << 10, GetGroupMemory());
    return 0;
}

std::uint64_t JobSize::GetStackPixels() const
{
    return std::uint64_t(iProjX) * std::uint64_t(iProjY) * std::uint64_t(iProjs);
}

std::uint64_t JobSize::GetVoxels() const
{
    // Each extent is below 2^31, so the product may exceed 64 bits: saturate.
    const std::uint64_t ulSlice = std::uint64_t(iVolX) * std::uint64_t(iVolZ);
    const auto ulRows = std::uint64_t(iProjY);
    const std::uint64_t ulMost = std::numeric_limits<std::uint64_t>::max();
    return ulSlice > ulMost / ulRows ? ulMost : ulSlice * ulRows;
}

std::uint64_t JobSize::GetBytes(int iDevices) const
{
    constexpr std::uint64_t ulRowsAtOnce = 16;
    const std::uint64_t ulBatch = ulRowsAtOnce * 4 *
                                  (3 * std::uint64_t(iProjX) * std::uint64_t(iProjs) +
                                   2 * std::uint64_t(iVolX) * std::uint64_t(iVolZ));
    const std::uint64_t ulRanges = 8 * std::uint64_t(iProjY) * std::uint64_t(iProjs);
    return 4 * (GetStackPixels() + (bSmooth ? 2 : 1) * GetVoxels()) + ulRanges +
           std::uint64_t(iDevices) * ulBatch;
}

bool CheckJobSize(const JobSize& rSize, const ServerOptions& rOptions, std::string& rError)
{
    if (rSize.GetStackPixels() >= g_ulMaxVoxels || rSize.GetVoxels() >= g_ulMaxVoxels)
    {
        const bool bStack = rSize.GetStackPixels() >= g_ulMaxVoxels;
        rError =
            Format("the %s of %d x %d x %d has 2^31 or more %s, which no server takes",
                   bStack ? "stack" : "volume", bStack ? rSize.iProjX : rSize.iVolX, rSize.iProjY,
                   bStack ? rSize.iProjs : rSize.iVolZ, bStack ? "pixels" : "voxels");
        return false;
    }
    const std::uint64_t ulFree = GetFreeMemory();
    const std::uint64_t ulNeeded = rSize.GetBytes(1);
    if (!rOptions.strServer.empty() || ulFree == 0 || ulNeeded <= ulFree) return true;
    rError = "the server would need " + FormatBytes(ulNeeded) + " of memory, this machine has " +
             FormatBytes(ulFree) + " free";
    return false;
}

}  // namespace talven
