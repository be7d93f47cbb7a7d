#include "talven/ServerLink.h"

#include <algorithm>
#include <charconv>
#include <thread>

#include "talven/Text.h"

namespace talven
{
namespace
{

using namespace std::chrono_literals;

constexpr std::uint16_t g_usDefaultPort = 20248;

}  // namespace

int ServerOptions::EstimateDevices() const
{
    const int iCores = static_cast<int>(std::thread::hardware_concurrency());
    return std::clamp(iDevices > 0 ? iDevices : iCores, 1, g_iMaxDevices);
}

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

bool CServerLink::Connect(const ServerOptions& rOptions, CMonitor& rMonitor)
{
    m_aSession.SetInterruptFd(rMonitor.GetStopFd());
    m_bPrivate = rOptions.IsHere();
    const bool bDone = m_bPrivate ? m_aServer.Start(rOptions, m_aSession)
                                  : mConnectThere(rOptions.strServer, rMonitor);
    if (bDone) return true;
    if (rMonitor.IsStopped()) return Fail(m_strError, "interrupted");  // no fault of the server
    return Fail(m_strError, m_bPrivate ? m_aServer.GetError() : m_strError);
}

bool CServerLink::mConnectThere(const std::string& strServer, CMonitor& rMonitor)
{
    std::string strHost;
    std::uint16_t usPort = 0;
    if (!ParseServer(strServer, strHost, usPort))
        return Fail(m_strError, "\"" + strServer + "\" is not HOST:PORT");
    m_bUnreached = !m_aSession.Open(strHost, usPort, 10s);
    if (m_bUnreached) return Fail(m_strError, m_aSession.GetError());
    // The first reply comes when the server has finished with the clients before us.
    const CPhase aWaiting(rMonitor, "waiting for the server");
    std::uint64_t ulMemory = 0;
    return m_aSession.GetServerMemory(ulMemory) || Fail(m_strError, Explain());
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

}  // namespace talven
