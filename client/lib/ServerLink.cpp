#include "talven/ServerLink.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>
#include <string_view>
#include <thread>

#include "Machine/HostShares.h"
#include "Machine/MachineLimits.h"
#include "ServerSearch.h"
#include "SshPipe.h"
#include "talven/Text.h"

namespace talven
{
namespace
{

using namespace std::chrono_literals;

constexpr std::uint16_t g_usDefaultPort = 20248;
constexpr std::string_view g_strSsh = "ssh://";

bool ParsePort(std::string_view strText, std::uint16_t& rPort)
{
    const char* pcEnd = strText.data() + strText.size();
    const auto [pcStop, eError] = std::from_chars(strText.data(), pcEnd, rPort);
    return eError == std::errc() && pcStop == pcEnd && rPort != 0;
}

/// "host", "host:port", "[address]:port"; rHost has no brackets. The port stays where there is
/// none.
bool ParseHost(std::string_view strText, std::string& rHost, std::uint16_t& rPort)
{
    std::size_t tColon = strText.rfind(':');
    if (tColon != std::string::npos && strText.find(']', tColon) != std::string::npos)
        tColon = std::string::npos;  // inside an address in brackets
    rHost = strText.substr(0, tColon);
    if (rHost.size() > 2 && rHost.front() == '[' && rHost.back() == ']')
        rHost = rHost.substr(1, rHost.size() - 2);
    return !rHost.empty() &&
           (tColon == std::string::npos || ParsePort(strText.substr(tColon + 1), rPort));
}

/// What ssh reads as an option or a shell as more than a word is no user and no host.
bool IsPlainWord(std::string_view strText)
{
    return !strText.empty() && strText[0] != '-' &&
           std::ranges::all_of(
               strText, [](char c)
               { return std::isalnum((unsigned char)c) != 0 || std::strchr("._-:%+\\", c); });
}

bool ParseSshName(ServerName& rName)
{
    const std::string_view strText = rName.strName;
    const std::size_t tSlash = strText.find('/', g_strSsh.size());
    rName.bSsh = true;
    rName.strHost = strText.substr(0, tSlash);
    const std::string_view strPlace = std::string_view(rName.strHost).substr(g_strSsh.size());
    const std::size_t tAt = strPlace.rfind('@');
    const bool bUser = tAt != std::string_view::npos;
    std::string strHost;
    std::uint16_t usSshPort = 22;
    return (!bUser || IsPlainWord(strPlace.substr(0, tAt))) &&
           ParseHost(strPlace.substr(bUser ? tAt + 1 : 0), strHost, usSshPort) &&
           IsPlainWord(strHost) &&
           (tSlash == std::string::npos || ParsePort(strText.substr(tSlash + 1), rName.usPort));
}

bool ParseName(ServerName& rName)
{
    rName.usPort = g_usDefaultPort;
    return rName.strName.starts_with(g_strSsh)
               ? ParseSshName(rName)
               : ParseHost(rName.strName, rName.strHost, rName.usPort);
}

}  // namespace

int ServerOptions::EstimateDevices() const
{
    const int iStarted = CountHostDevices(iCores > 0 ? iCores : CMachineLimits::CountCores());
    return iDevices > 0 ? std::min(iDevices, iStarted) : iStarted;
}

bool ParseServers(const std::string& strText, std::vector<ServerName>& rServers,
                  std::string& rError)
{
    std::vector<ServerName> vaServers;
    std::size_t tEnd = 0;
    for (std::size_t tStart = 0; tEnd != std::string::npos; tStart = tEnd + 1)
    {
        tEnd = strText.find(',', tStart);
        ServerName aName;
        aName.strName = Trim(std::string_view(strText).substr(tStart, tEnd - tStart));
        if (!ParseName(aName))
            return Fail(rError, Format("\"%s\" is not HOST:PORT or ssh://HOST",
                                       Show(aName.strName).c_str()));
        vaServers.push_back(aName);
    }
    rServers = std::move(vaServers);
    return true;
}

CServerLink::CServerLink() : m_pSession(std::make_unique<CSession>()) {}

CServerLink::~CServerLink() = default;

bool CServerLink::Connect(const ServerOptions& rOptions, CMonitor& rMonitor)
{
    m_pSession = std::make_unique<CSession>();
    m_pSsh.reset();
    m_pSearch.reset();
    m_strName.clear();
    m_bList = m_bUnreached = m_bBusy = false;
    if (!rOptions.IsHere())
    {
        std::vector<ServerName> vaServers;
        if (!ParseServers(rOptions.strServer, vaServers, m_strError)) return false;
        m_bList = vaServers.size() > 1;
        m_pSearch = std::make_unique<CServerSearch>(vaServers, rOptions.dWait, rOptions.aLimits);
        return mConnectThere(rMonitor);
    }
    m_pSession->SetInterruptFd(rMonitor.GetStopFd());
    m_pSession->SetLimits(rOptions.aLimits);
    if (m_aServer.Start(rOptions, *m_pSession)) return true;
    m_pSession = std::make_unique<CSession>();  // nothing was lost that ever began
    return Fail(m_strError, rMonitor.IsStopped() ? "interrupted" : m_aServer.GetError());
}

bool CServerLink::ConnectNext(CMonitor& rMonitor)
{
    if (!m_pSearch) return Fail(m_strError, Explain());
    m_pSearch->NoteFault(m_strName + " was lost: " + Explain());
    return mConnectThere(rMonitor);
}

bool CServerLink::mConnectThere(CMonitor& rMonitor)
{
    const std::unique_ptr<CServerCall> pCall = m_pSearch->Run(rMonitor);
    m_bUnreached = !pCall && m_pSearch->MayRetry();
    m_bBusy = m_pSearch->WasBusy();
    if (!pCall)
        return Fail(m_strError, rMonitor.IsStopped() ? "interrupted" : m_pSearch->GetError());
    m_strName = pCall->GetName().strName;
    m_pSession = pCall->ReleaseSession();
    m_pSsh = pCall->ReleaseSsh();
    return true;
}

void CServerLink::Close()
{
    m_pSession->Close();
    if (m_pSsh) m_pSsh->Finish();
    m_aServer.Stop();
}

std::string CServerLink::GetFaults() const
{
    return m_pSearch ? m_pSearch->GetError() : std::string();
}

std::string CServerLink::Explain() const
{
    if (m_pSession->WasInterrupted()) return "interrupted";
    std::string strError = m_pSession->GetError();
    if (!m_pSearch)
    {
        if (const std::string strServer = m_aServer.GetServerError();
            m_pSession->WasRefused() && !strServer.empty())
            return strError + ": " + strServer;
        // A process that dies closes its sockets a little before it can be waited for.
        std::string strEnd;
        for (int i = 0; i < 20 && !m_pSession->IsOpen() && strEnd.empty(); ++i)
        {
            if (i > 0) std::this_thread::sleep_for(10ms);
            strEnd = m_aServer.DescribeEnd();
        }
        strError += strEnd;
    }
    else if (m_pSession->WasRefused())
        strError += " (its console says why)";
    else if (m_pSsh && !m_pSsh->GetLastWords().empty())
        strError += " (" + m_pSsh->GetLastWords() + ")";
    return strError;
}

}  // namespace talven
