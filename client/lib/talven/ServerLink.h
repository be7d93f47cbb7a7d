#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "talven/Monitor.h"
#include "talven/PrivateServer.h"
#include "talven/Session.h"

namespace talven
{

/// The server that a job uses: somebody else's, or a private one with the options of the base.
struct ServerOptions : PrivateServerOptions
{
    std::string strServer;        ///< names as ParseServers() takes them; empty: a private server
    std::optional<double> dWait;  ///< most seconds in the queues of busy servers; none: any time
    SessionLimits aLimits;

    bool IsHere() const { return strServer.empty(); }
    /// Devices that a server with these options has on this machine, to estimate its memory.
    int EstimateDevices() const;
};

/// Where a server is.
struct ServerName
{
    std::string strName;       ///< as it was given
    std::string strHost;       ///< with bSsh what ssh takes, "ssh://user@host:22"
    std::uint16_t usPort = 0;  ///< of the server
    bool bSsh = false;
};

/// Reads "host:port", "host" (the default port 20248), "[::1]:port" or, through ssh,
/// "ssh://[user@]host[:port of ssh][/port of the server there]"; or several with commas between.
[[nodiscard]] bool ParseServers(const std::string& strText, std::vector<ServerName>& rServers,
                                std::string& rError);

class CServerSearch;
class CSshPipe;

/// A server, started when it is a private one, and the session with it.
///
/// Of several, the one that is free first takes the job; where more are free, the one that comes
/// first in the list.
class CServerLink
{
public:
    CServerLink();
    ~CServerLink();
    CServerLink(const CServerLink&) = delete;
    CServerLink& operator=(const CServerLink&) = delete;

    /// Returns when a server has finished with the clients before us.
    /// \param rMonitor  can end all waits; outlives this link
    /// \return false: GetError() has the reason of each server, in one line
    [[nodiscard]] bool Connect(const ServerOptions& rOptions, CMonitor& rMonitor);
    /// After WasLost(): the same with the servers of the list that have not failed yet. None of
    /// them is called twice, unless the list names it twice.
    [[nodiscard]] bool ConnectNext(CMonitor& rMonitor);
    /// Whether a list was given, so that ConnectNext() can say more than Explain().
    bool HasNext() const { return m_bList; }
    /// The session now: another one after each Connect() and ConnectNext().
    CSession& GetSession() { return *m_pSession; }
    /// Leaves the session and ends a private server.
    void Close();

    /// The name of the server, as it was given; empty: a private one.
    const std::string& GetName() const { return m_strName; }
    /// The servers of the list that failed, and why; empty: none.
    std::string GetFaults() const;
    /// What a private server said about its backend and devices; nothing is known of others.
    std::string GetServerInfo() const { return m_aServer.GetServerInfo(); }
    /// Why the last operation of the session failed, with what the server said about it.
    std::string Explain() const;
    /// Whether a server was not reached or lost: it may do another time.
    bool WasLost() const { return m_bUnreached || m_pSession->WasLost(); }
    /// Whether there is no connection because a server was busy for too long.
    bool WasBusy() const { return m_bBusy; }
    /// Why there is no connection.
    const std::string& GetError() const { return m_strError; }

private:
    bool mConnectThere(CMonitor& rMonitor);

    CPrivateServer m_aServer;          // outlives the session
    std::unique_ptr<CSshPipe> m_pSsh;  // the same
    std::unique_ptr<CSession> m_pSession;
    std::unique_ptr<CServerSearch> m_pSearch;  // none: a private server
    std::string m_strName;
    bool m_bList = false, m_bUnreached = false, m_bBusy = false;
    std::string m_strError;
};

}  // namespace talven
