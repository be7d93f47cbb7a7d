#pragma once

#include <cstdint>
#include <string>

#include "talven/Monitor.h"
#include "talven/PrivateServer.h"
#include "talven/Session.h"

namespace talven
{

/// The server that a job uses: somebody else's, or a private one with the options of the base.
struct ServerOptions : PrivateServerOptions
{
    std::string strServer;  ///< HOST:PORT; empty: a private server

    bool IsHere() const { return strServer.empty(); }
    /// Devices that a server with these options has on this machine, to estimate its memory.
    int EstimateDevices() const;
};

/// Splits "host:port", "host" (the default port 20248) or "[::1]:port".
[[nodiscard]] bool ParseServer(const std::string& strText, std::string& rHost,
                               std::uint16_t& rPort);

/// A server, started when it is a private one, and the session with it.
class CServerLink
{
public:
    /// Returns when the server has finished with the clients before us.
    /// \param rMonitor  can end all waits; outlives this link
    [[nodiscard]] bool Connect(const ServerOptions& rOptions, CMonitor& rMonitor);
    CSession& GetSession() { return m_aSession; }
    /// Leaves the session and ends a private server.
    void Close();

    /// What a private server said about its backend and devices; nothing is known of others.
    std::string GetServerInfo() const { return m_aServer.GetServerInfo(); }
    /// Why the last operation of the session failed, with what the server said about it.
    std::string Explain() const;
    /// Whether a server was not reached or lost: it may do another time.
    bool WasLost() const { return m_bUnreached || m_aSession.WasLost(); }
    /// Why there is no connection.
    const std::string& GetError() const { return m_strError; }

private:
    bool mConnectThere(const std::string& strServer, CMonitor& rMonitor);

    CPrivateServer m_aServer;  // outlives the session
    CSession m_aSession;
    bool m_bPrivate = false, m_bUnreached = false;
    std::string m_strError;
};

}  // namespace talven
