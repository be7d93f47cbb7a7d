#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "talven/Session.h"

namespace talven
{

constexpr int g_iMaxDevices = 16;  ///< of any server

struct PrivateServerOptions
{
    int iDevices = 0;        ///< use only the first so many, 1 to g_iMaxDevices; 0: all
    std::string strBackend;  ///< "host", "cuda", "auto"; empty: the environment's choice
    std::string strProgram;  ///< full path of talven-server; empty: see FindServerProgram()
};

/// The value of TALVEN_BUSY_GPUS that leaves only the first iDevices devices to a server.
std::string GetBusyDevices(int iDevices);

/// Full path of talven-server: TALVEN_SERVER from the environment, or beside the running program,
/// or in
/// ../libexec/talven, or in PATH. Empty when there is none.
std::string FindServerProgram();

/// A talven-server of this process's own, on the loopback interface, on a free port.
///
/// It runs in a process group of its own (Ctrl-C on the terminal does not reach it) and ends with
/// this object, and also when the thread that started it dies in whatever way. Its working
/// directory is an empty temporary one, removed at the end.
class CPrivateServer
{
public:
    CPrivateServer() = default;
    ~CPrivateServer() { Stop(); }
    CPrivateServer(const CPrivateServer&) = delete;
    CPrivateServer& operator=(const CPrivateServer&) = delete;

    /// Starts the server and opens the session with it.
    [[nodiscard]] bool Start(const PrivateServerOptions& rOptions, CSession& rSession);
    void Stop();

    /// The last "Error: " line that the server printed, without that word; empty when none.
    std::string GetServerError() const;
    /// What it said about its backend and devices, "Backend host (avx512). 2 devices available."
    std::string GetServerInfo() const;
    /// How the server ended, in brackets for the end of a message; empty while it runs.
    std::string DescribeEnd() const;
    pid_t GetPid() const { return m_iPid; }  ///< of the server, -1: none
    const std::string& GetError() const { return m_strError; }

private:
    bool mStartOnce(const std::string& strProgram, const PrivateServerOptions& rOptions,
                    CSession& rSession);
    bool mSpawn(const std::string& strProgram, const std::vector<std::string>& vstrSettings);
    std::vector<std::string> mGetLines(std::string_view strMark) const;
    bool mConnect(std::uint16_t usPort, CSession& rSession);
    bool mHasEnded() const { return m_iPid == -1 || !DescribeEnd().empty(); }

    pid_t m_iPid = -1;
    std::string m_strDirectory;
    std::string m_strOutput;  // file with what the server prints
    std::string m_strError;
};

}  // namespace talven
