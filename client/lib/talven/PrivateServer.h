#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "talven/Session.h"

namespace talven
{

class CPrivateFolder;

constexpr int g_iMaxDevices = 16;  ///< of any server
constexpr int g_iMaxCores = 1024;  ///< that a server can be told

struct PrivateServerOptions
{
    int iDevices = 0;        ///< use only the first so many, 1 to g_iMaxDevices; 0: all
    int iCores = 0;          ///< of the host backend, for all its devices, 1 to g_iMaxCores; 0: all
    std::string strBackend;  ///< "host", "cuda", "auto"; empty: the environment's choice
    std::string strProgram;  ///< full path of talven-server; empty: see FindServerProgram()
};

/// The value of TALVEN_BUSY_GPUS that leaves only the first iDevices devices to a server.
std::string GetBusyDevices(int iDevices);

/// Full path of talven-server: TALVEN_SERVER from the environment, or beside the running program,
/// or in
/// ../libexec/talven, or in PATH. Empty when there is none.
std::string FindServerProgram();

/// A talven-server of this process's own, which nobody else can connect to: it has no port, but a
/// Unix socket whose only client is there before it starts.
///
/// It runs in a process group of its own (Ctrl-C on the terminal does not reach it) and ends with
/// this object, and also when the thread that started it dies in whatever way. Its working
/// directory is a temporary one that no other user may enter, removed at the end; what a client
/// leaves that is killed is removed when this user's next private server starts.
class CPrivateServer
{
public:
    CPrivateServer();
    ~CPrivateServer();
    CPrivateServer(const CPrivateServer&) = delete;
    CPrivateServer& operator=(const CPrivateServer&) = delete;

    /// Starts the server and opens the session with it; waits for its first answer, until it ends
    /// or the session is interrupted.
    [[nodiscard]] bool Start(const PrivateServerOptions& rOptions, CSession& rSession);
    /// The same for somebody who speaks with it otherwise, and does not wait.
    /// \param rSocket  a stream to it, which the caller owns
    [[nodiscard]] bool Start(const PrivateServerOptions& rOptions, int& rSocket);
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
    bool mStart(const std::string& strProgram, const PrivateServerOptions& rOptions, int& rSocket);
    bool mSpawn(const std::string& strProgram, const PrivateServerOptions& rOptions,
                int iListening);
    bool mGreet(int iSocket, CSession& rSession);
    std::vector<std::string> mGetLines(std::string_view strMark) const;

    pid_t m_iPid = -1;
    std::unique_ptr<CPrivateFolder> m_pFolder;  // with what the server prints
    std::string m_strError;
};

}  // namespace talven
