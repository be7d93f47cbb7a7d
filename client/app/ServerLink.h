#pragma once

#include <cstdint>
#include <string>

#include "Report.h"
#include "talven/PrivateServer.h"
#include "talven/Session.h"

namespace talven
{

struct ServerOptions
{
    std::string strServer;  ///< HOST:PORT; empty: a private server
    int iDevices = 0;       ///< of a private server; 0: all
    std::string strBackend;
};

/// Splits "host:port", "host" (the default port 20248) or "[::1]:port".
[[nodiscard]] bool ParseServer(const std::string& strText, std::string& rHost,
                               std::uint16_t& rPort);

/// The server that a command works with, somebody else's or a private one, and the session with it.
class CServerLink
{
public:
    [[nodiscard]] bool Connect(const ServerOptions& rOptions, const CReport& rReport);
    CSession& GetSession() { return m_aSession; }
    /// Leaves the session and ends a private server.
    void Close();

    /// Why the last operation of the session failed, with what the server said about it.
    std::string Explain() const;
    const std::string& GetError() const { return m_strError; }

private:
    CPrivateServer m_aServer;  // outlives the session
    CSession m_aSession;
    bool m_bPrivate = false;
    std::string m_strError;
};

/// Memory that this machine can give to a private server now, bytes; 0 when that is not known.
std::uint64_t GetFreeMemory();
/// Memory that a server needs for a stack and a volume of floats.
struct JobSize
{
    int iProjX, iProjY, iProjs;
    int iVolX, iVolZ;
    bool bSmooth = false;  ///< smoothing works on a copy of the volume

    std::uint64_t GetStackPixels() const;
    std::uint64_t GetVoxels() const;
    std::uint64_t GetBytes(int iDevices) const;
};
/// Checks the limits of the protocol, and for a private server those of this machine.
[[nodiscard]] bool CheckJobSize(const JobSize& rSize, const ServerOptions& rOptions,
                                std::string& rError);

}  // namespace talven
